#include <list>

#include "bench/BareMessage.h"
#include "bench/Row.h"
#include "em_alert/AlertExtensionModule.h"

namespace {

constexpr unsigned int kWarning = 2;

/// An agent that reports a warning whenever it is asked for the system's status.
class CWarningSwitch final : public CISwitch {
public:
    void AsyncRequest(CIExtensionModule*, SipJson&, unsigned int) override {}
    void SyncRequest(CIExtensionModule*, SipJson& message, unsigned int) override {
        message.SetDataUIntValue(kWarning, 0);
    }
    bool DeliverMessage(CIExtensionModule*, SipJson&) override { return true; }
    bool EnableEvents(CIExtensionModule*, bool) override { return true; }
    bool DisableEvents(CIExtensionModule*) override { return true; }
    bool ForwardEvent(CIExtensionModule*, SipJson&, unsigned int, unsigned int) override { return true; }
    unsigned int GetRunMode() override { return 0; }
};

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
        const CBareMessage request({0x230F, 0, 0, 0, 0, kWarning});
        benchmark::DoNotOptimize(request);
        alerts.emplace_back(event.GetDocument());
        if (alerts.size() > CPendingAlerts::kCapacity) {
            alerts.pop_front();
        }
        const CBareMessage announcement({0x2240, 0, 0, 0, 0, 1});
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
