// SPDX-License-Identifier: Apache-2.0
#include "bench/BareMessage.h"
#include "bench/Row.h"
#include "bench/WarningSwitch.h"
#include "em_alert/alert/AlertExtensionModule.h"
#include "sip/Vocabulary.h"

namespace {

constexpr CBareMessage::Command kCommand = {kReadConfigurationValue, kSystemAssetTag, 17, 7, 255, 2};

/// Not inlined: SipJson's accessors are not either, so the name of the member comes as a pointer to both.
[[gnu::noinline]] unsigned int BareNumber(const CBareMessage::Document& document, unsigned int index, const char* key,
                                          unsigned int fallback) {
    const CBareMessage::Value& command = document.FindMember("SIP")->value.FindMember("CMD")->value[index];
    const auto member = command.FindMember(key);
    return member != command.MemberEnd() ? member->value.GetUint() : fallback;
}

void ReadMember(const char* row, const char* key) {
    AddRow(
        row, Clock::Cpu,
        [key](benchmark::State& state) {
            const SipJson event = StatusEvent();
            Measure(state, [&] { benchmark::DoNotOptimize(event.GetCmdElemValue(0, key, 0)); });
        },
        [key](benchmark::State& state) {
            const SipJson event = StatusEvent();
            Measure(state, [&] { benchmark::DoNotOptimize(BareNumber(event.GetDocument(), 0, key, 0)); });
        });
}

void BuildProject(benchmark::State& state) {
    Measure(state, [] {
        SipJson message;
        message.SetCmd(message.GetCmd(), kCommand.oc, kCommand.oe, kCommand.oi, kCommand.ca, kWithoutStatus);
        message.SetDataUIntValue(kCommand.da, kCommand.st);
        benchmark::DoNotOptimize(message);
    });
}

void BuildFloor(benchmark::State& state) {
    Measure(state, [] {
        const CBareMessage message(kCommand);
        benchmark::DoNotOptimize(message);
    });
}

void CopyProject(benchmark::State& state) {
    const SipJson event = StatusEvent();
    Measure(state, [&] {
        const SipJson copy(event);  // NOLINT(performance-unnecessary-copy-initialization): it is what is measured
        benchmark::DoNotOptimize(copy);
    });
}

void CopyFloor(benchmark::State& state) {
    const SipJson event = StatusEvent();
    Measure(state, [&] {
        const CBareMessage copy(event.GetDocument());
        benchmark::DoNotOptimize(copy);
    });
}

void CountPendingHeap(benchmark::State& state) {
    const SipJson event = StatusEvent();
    CWarningSwitch agent;
    CAlertExtensionModule module;
    module.Start(&agent, 1);
    CAgentLink link(module);
    CPendingAlerts alerts(link);
    const CCriticalSectionLock lock(alerts.Lock());
    const CHeapCount heap;
    for (std::size_t i = 0; i < CPendingAlerts::kCapacity; ++i) {
        alerts.Add(event);
    }
    state.counters["bytes"] = static_cast<double>(heap.Bytes());
}

}  // namespace

void AddMessageRows() {
    ReadMember("message/read-first-member", "OC");
    ReadMember("message/read-last-member", "DA");
    AddRow("message/build-command", Clock::Cpu, BuildProject, BuildFloor);
    AddRow("message/copy-event", Clock::Cpu, CopyProject, CopyFloor);
    AddCount("message/100-pending-alerts", CountPendingHeap);
}
