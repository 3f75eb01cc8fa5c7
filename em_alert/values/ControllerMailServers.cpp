// SPDX-License-Identifier: Apache-2.0
#include "em_alert/values/ControllerMailServers.h"

#include "em_alert/values/AgentLink.h"
#include "platform/diagnostics/Trace.h"
#include "platform/diagnostics/WithoutPassword.h"

void ImportControllerMailServers(CAgentLink& link, SmtpSettingsMap& map) {
    EM_TRACE(3, "\nEM_ALERT            : Import Zelcon SMTP settings without user authentication...");
    unsigned int count = 2;
    link.RequestNumber(kReadConfigurationValue, kControllerMailCount, 0, count);
    count &= 0xFF;
    EM_TRACE(3, "\nEM_ALERT            : Zelcon SMTP settings found: %d", static_cast<int>(count));
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int enabled{};
        link.RequestNumber(kReadConfigurationValue, kControllerMailEnabled, i, enabled);
        SmptSettings server;
        link.RequestText(kReadConfigurationValue, kControllerMailHost, i, server.host);
        EM_TRACE(3, "\nEM_ALERT            :   import Zelcon SMTP host name \"%s\"",
                 WithoutPassword(server.host).c_str());
        if (!server.host.empty()) {
            unsigned int port = DefaultPort(server.host);
            link.RequestNumber(kReadConfigurationValue, kControllerMailPort, i, port);
            server.port = static_cast<unsigned short>(port);
            EM_TRACE(3, "\nEM_ALERT            :   import Zelcon SMTP port %d", server.port);
        }
        map[ServerKey("Zelcon", static_cast<int>(i))] = std::move(server);
    }
    EM_TRACE(3, "\nEM_ALERT            : Zelcon SMTP settings imported: %d", static_cast<int>(count));
    EM_TRACE(3, "\nEM_ALERT            : Import of Zelcon SMTP settings done!");
}
