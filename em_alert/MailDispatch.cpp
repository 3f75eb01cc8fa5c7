#include "em_alert/AlertExtensionModule.h"
#include "mail/Smtp.h"
#include "platform/Trace.h"
#include "platform/WithoutPassword.h"

namespace {

void TraceAddresses(const char* heading, const std::vector<std::string>& addresses) {
    EM_TRACE(3, "\nEM_ALERT            : %s", heading);
    for (const std::string& address : addresses) {
        EM_TRACE(3, "\nEM_ALERT            :   %s", address.c_str());
    }
}

}  // namespace

void CAlertExtensionModule::ReadAlerterSmtpSettings() {
    mailSettings_.Read();
}

void CAlertExtensionModule::ImportZelconSmtpSettings(SmtpSettingsMap& map) {
    EM_TRACE(3, "\nEM_ALERT            : Import Zelcon SMTP settings without user authentication...");
    unsigned int count = 2;
    RequestNumber(kReadConfigurationValue, 0x128E, 0, count);
    count &= 0xFF;
    EM_TRACE(3, "\nEM_ALERT            : Zelcon SMTP settings found: %d", static_cast<int>(count));
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int enabled = 0;
        RequestNumber(kReadConfigurationValue, 0x1270, i, enabled);
        SmptSettings server;
        RequestText(kReadConfigurationValue, 0x1282, i, server.host);
        EM_TRACE(3, "\nEM_ALERT            :   import Zelcon SMTP host name \"%s\"",
                 WithoutPassword(server.host).c_str());
        if (!server.host.empty()) {
            unsigned int port = DefaultPort(server.host);
            RequestNumber(kReadConfigurationValue, 0x1283, i, port);
            server.port = static_cast<unsigned short>(port);
            EM_TRACE(3, "\nEM_ALERT            :   import Zelcon SMTP port %d", server.port);
        }
        map[ServerKey("Zelcon", static_cast<int>(i))] = std::move(server);
    }
    EM_TRACE(3, "\nEM_ALERT            : Zelcon SMTP settings imported: %d", static_cast<int>(count));
    EM_TRACE(3, "\nEM_ALERT            : Import of Zelcon SMTP settings done!");
}

int CAlertExtensionModule::AlerterSendMail(const CSmtpMessage& mail) {
    constexpr int kNoServerTried = -1;
    if (mail.Sender().empty()) {
        return kNoServerTried;
    }
    const auto settings = mailSettings_.Get();
    const SmtpSettingsMap& servers = settings->servers;
    EM_TRACE(3, "\nEM_ALERT            : SendMail sender: \"%s\"", mail.Sender().c_str());
    TraceAddresses("SendMail recipients:", mail.Recipients());
    TraceAddresses("SendMail recipients CC:", mail.RecipientsCc());
    EM_TRACE(3, "\nEM_ALERT            : Available internal SMTP settings: %d", static_cast<int>(servers.size()));

    int result = kNoServerTried;
    for (const auto& [key, server] : servers) {
        if (IsStopping()) {
            break;
        }
        if (server.host.empty()) {
            EM_TRACE(3, "\nEM_ALERT            : SMTP setting \"%s\" skipped - empty host name", key.c_str());
            continue;
        }
        EM_TRACE(3, "\nEM_ALERT            : SendMail using the following internal SMTP settings:");
        EM_TRACE(3, "\nEM_ALERT            :   SMTP server \"%s\" port %d", WithoutPassword(server.host).c_str(),
                 server.port);
        // A log-in without a user name fails at the server, in sight; left out, nobody would know of it.
        const bool logsIn = server.authenticationType != 0;
        if (logsIn) {
            EM_TRACE(3, "\nEM_ALERT            :   Authentication is configured:");
            EM_TRACE(3, "\nEM_ALERT            :     User name: \"%s\"", server.userName.c_str());
        }
        result = CSmtp(&stopping_)
                     .SendMail(mail.Sender().c_str(), mail, server.host.c_str(), server.port,
                               logsIn ? server.userName.c_str() : nullptr, server.password.c_str(), server.useTls);
        EM_TRACE(3, "\nEM_ALERT            : SendMail RetCode: 0x%X (%d)", static_cast<unsigned int>(result), result);
        if (result == 0) {
            break;
        }
    }
    return result;
}
