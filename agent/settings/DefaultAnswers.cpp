// SPDX-License-Identifier: Apache-2.0
#include "agent/settings/DefaultAnswers.h"

#include "sip/Vocabulary.h"

namespace {

constexpr const char* kStatusText = R"($(ComponentDesignation) ($(ComponentName)) of $(HostNameFQ): $(ComponentStatus)

Server status: $(SystemStatus)
Time: $(Date) $(Time)

Sent by em_alert. "em-alert pending" on the server shows what waits to be acknowledged.
)";

constexpr const char* kUpdateText = R"($(UpdateMessage)

Server: $(HostNameFQ)
Time: $(Date) $(Time)
)";

}  // namespace

void SetDefaultAnswers(CAnswerTable& table) {
    const auto setText = [&table](ConfigurationValue id, const char* text) {
        table.Set(MakeCommand(kReadConfigurationValue, id, JsonString(text)));
    };
    table.Set(MakeCommand(kReadConfigurationValue, kMailAlertSeverity, "2"));
    setText(kMailAlertSubject, "$(ComponentStatus): $(ComponentName) on $(HostName)");
    setText(kMailAlertMessage, kStatusText);
    setText(kUpdateStatusSubject, "Updates for $(HostName)");
    setText(kUpdateStatusMessage, kUpdateText);
    table.Set(MakeCommand(kReadUpdateMessage, 0, JsonString("The update manager has a message for this server.")));
}
