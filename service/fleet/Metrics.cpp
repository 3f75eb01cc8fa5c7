// SPDX-License-Identifier: Apache-2.0
#include "service/fleet/Metrics.h"

namespace {

// In a label, backslash, quote and line feed are escaped; texts have no line feeds here.
std::string Label(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        escaped += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return "{component=\"" + escaped + "\"}";
}

std::string Head(const std::string& name, const char* type, const char* help) {
    return "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

// After a restart the status is known before a result comes.
bool HasStatus(const Component& component) {
    return component.checked != 0 || component.since != 0;
}

bool HasResult(const Component& component) {
    return component.checked != 0;
}

template <typename Value>
std::string PerComponent(const CComponents& components, const std::string& name, const char* help,
                         bool (*isKnown)(const Component&), Value value) {
    std::string text = Head(name, "gauge", help);
    for (const Component& component : components.All()) {
        if (isKnown(component)) {
            text += name + Label(component.config.name) + " " + std::to_string(value(component)) + "\n";
        }
    }
    return text;
}

}  // namespace

std::string MetricsText(const CComponents& components, const CLedger& ledger) {
    const CLedger::Mails mails = ledger.MailCounts();
    return PerComponent(components, "em_alert_component_status", "0 unknown, 1 OK, 2 warning, 3 critical.", HasStatus,
                        [](const Component& one) { return static_cast<unsigned>(one.status); }) +
           PerComponent(components, "em_alert_component_last_result_timestamp_seconds", "Time of the newest result.",
                        HasResult, [](const Component& one) { return one.checked; }) +
           PerComponent(components, "em_alert_component_check_duration_seconds", "Time that the newest check took.",
                        HasResult, [](const Component& one) { return one.took.count(); }) +
           Head("em_alert_pending_alerts", "gauge", "Alerts that nobody has acknowledged.") +
           "em_alert_pending_alerts " + std::to_string(ledger.Pending().size()) + "\n" +
           Head("em_alert_mails_total", "counter", "Mails about alerts, by what became of them.") +
           "em_alert_mails_total{result=\"sent\"} " + std::to_string(mails.sent) +
           "\nem_alert_mails_total{result=\"failed\"} " + std::to_string(mails.failed) + "\n";
}
