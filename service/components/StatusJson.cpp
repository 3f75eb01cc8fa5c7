// SPDX-License-Identifier: Apache-2.0
#include "service/components/StatusJson.h"

#include "agent/core/Json.h"

std::string ComponentJson(const Component& component) {
    return "{\"name\":" + JsonString(component.config.name) +
           ",\"designation\":" + JsonString(component.config.designation) +
           ",\"status\":" + std::to_string(static_cast<std::uint32_t>(component.status)) +
           ",\"text\":" + JsonString(component.text) + ",\"since\":" + JsonTime(component.since) +
           ",\"checked\":" + JsonTime(component.checked) + ",\"next\":" + JsonTime(component.next) + "}";
}

std::string StatusJson(const CComponents& components, const CLedger& ledger) {
    std::string list;
    for (const Component& component : components.All()) {
        list += (list.empty() ? "" : ",") + ComponentJson(component);
    }
    const CLedger::Mails mails = ledger.MailCounts();
    return "{\"system\":" + std::to_string(components.SystemStatus()) +
           ",\"pending\":" + std::to_string(ledger.Pending().size()) + ",\"components\":[" + list +
           "],\"mail\":{\"sent\":" + std::to_string(mails.sent) + ",\"failed\":" + std::to_string(mails.failed) +
           ",\"last\":" + JsonTime(mails.last) + "}}";
}

std::string PendingJson(const CComponents& components, const CLedger& ledger) {
    std::string list;
    for (const CLedger::Alert& alert : ledger.Pending()) {
        const Component* component = components.Find(alert.name);
        // One that was listed again after a start, or for a reminder, is older than its place in the list.
        const bool isSettled = component != nullptr && component->since != 0 && component->effective == alert.status;
        list += std::string(list.empty() ? "" : ",") + "{\"name\":" + JsonString(alert.name) +
                ",\"designation\":" + JsonString(alert.designation) + ",\"severity\":" + JsonString(alert.Severity()) +
                ",\"since\":" + JsonTime(isSettled ? component->since : alert.since) +
                ",\"text\":" + JsonString(component != nullptr ? component->text : "") + "}";
    }
    return "[" + list + "]";
}
