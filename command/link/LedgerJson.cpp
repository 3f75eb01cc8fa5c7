// SPDX-License-Identifier: Apache-2.0

// What the ledger holds, in the form in which the service tells it.
#include "agent/core/Json.h"
#include "command/link/LocalModule.h"

namespace {

std::string Joined(const std::vector<std::string>& objects) {
    std::string list;
    for (const std::string& object : objects) {
        list += (list.empty() ? "" : ",") + object;
    }
    return "[" + list + "]";
}

}  // namespace

std::string CLocalModule::Status() {
    std::vector<std::string> components;
    for (const CLedger::Component& component : ledger_.Components()) {
        components.push_back(
            "{\"name\":" + JsonString(component.name) + ",\"designation\":" + JsonString(component.designation) +
            ",\"status\":" + std::to_string(component.status) + R"(,"text":"","since":)" + JsonTime(component.since) +
            ",\"checked\":" + JsonTime(component.told) + ",\"next\":null}");
    }
    const CLedger::Mails mails = ledger_.MailCounts();
    return "{\"system\":" + std::to_string(ledger_.SystemStatus()) +
           ",\"pending\":" + std::to_string(ledger_.Pending().size()) + ",\"components\":" + Joined(components) +
           ",\"mail\":{\"sent\":" + std::to_string(mails.sent) + ",\"failed\":" + std::to_string(mails.failed) +
           ",\"last\":" + JsonTime(mails.last) + "}}";
}

std::string CLocalModule::PendingAlerts() {
    std::vector<std::string> alerts;
    for (const CLedger::Alert& alert : ledger_.Pending()) {
        alerts.push_back("{\"name\":" + JsonString(alert.name) + ",\"designation\":" + JsonString(alert.designation) +
                         ",\"severity\":" + JsonString(alert.Severity()) + ",\"since\":" + JsonTime(alert.since) +
                         R"(,"text":""})");
    }
    return Joined(alerts);
}
