#include "service/components/StatusJson.h"

#include <array>
#include <ctime>

#include "agent/core/Json.h"

namespace {

std::string TimeOrNull(std::time_t time) {
    if (time == 0) {
        return "null";
    }
    std::tm utc{};
    ::gmtime_r(&time, &utc);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "\"%Y-%m-%dT%H:%M:%SZ\"", &utc)};
}

}  // namespace

std::string ComponentJson(const Component& component) {
    return "{\"name\":" + JsonString(component.config.name) +
           ",\"designation\":" + JsonString(component.config.designation) +
           ",\"status\":" + std::to_string(static_cast<std::uint32_t>(component.status)) +
           ",\"text\":" + JsonString(component.text) + ",\"since\":" + TimeOrNull(component.since) +
           ",\"checked\":" + TimeOrNull(component.checked) + ",\"next\":" + TimeOrNull(component.next) + "}";
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
           ",\"last\":" + TimeOrNull(mails.last) + "}}";
}

std::string PendingJson(const CComponents& components, const CLedger& ledger) {
    std::string list;
    for (const CLedger::Alert& alert : ledger.Pending()) {
        std::string text;
        for (const Component& component : components.All()) {
            text = component.config.name == alert.name ? component.text : text;
        }
        list += std::string(list.empty() ? "" : ",") + "{\"name\":" + JsonString(alert.name) +
                ",\"designation\":" + JsonString(alert.designation) +
                ",\"severity\":" + (alert.isError ? R"("error")" : R"("warning")") +
                ",\"since\":" + TimeOrNull(alert.since) + ",\"text\":" + JsonString(text) + "}";
    }
    return "[" + list + "]";
}
