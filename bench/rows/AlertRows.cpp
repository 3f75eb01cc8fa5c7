// SPDX-License-Identifier: Apache-2.0
#include <list>

#include "bench/BareMessage.h"
#include "bench/Row.h"
#include "bench/WarningSwitch.h"
#include "em_alert/alert/AlertExtensionModule.h"

namespace {

void EventProject(benchmark::State& state) {
    CWarningSwitch agent;
    CAlertExtensionModule module;  // its settings at their defaults: no beep, no mail
    module.Start(&agent, 1);
    SipJson event = StatusEvent();
    const auto deliver = [&] { module.ApplicationReply(event); };
    for (std::size_t i = 0; i < CPendingAlerts::kCapacity; ++i) {
        deliver();
    }
    Measure(state, deliver);
    module.Stop();
}

/// What cannot be left out: the copy that is kept, the message that asks for the status, and the one that announces.
void EventFloor(benchmark::State& state) {
    const SipJson event = StatusEvent();
    std::list<CBareMessage> alerts;
    const auto deliver = [&] {
        const CBareMessage request({kReadSystemStatus, 0, 0, 0, 0, CWarningSwitch::kWarning});
        benchmark::DoNotOptimize(request);
        alerts.emplace_back(event.GetDocument());
        if (alerts.size() > CPendingAlerts::kCapacity) {
            alerts.pop_front();
        }
        const CBareMessage announcement({kPendingAlert, 0, 0, 0, 0, 1});
        benchmark::DoNotOptimize(announcement);
    };
    for (std::size_t i = 0; i < CPendingAlerts::kCapacity; ++i) {
        deliver();
    }
    Measure(state, deliver);
}

}  // namespace

void AddAlertRows() {
    AddRow("alert/status-event", Clock::Cpu, EventProject, EventFloor);
}
