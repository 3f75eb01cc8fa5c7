// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "service/checks/CheckRunner.h"
#include "service/components/Components.h"

/// Runs the checks of all components, each at its interval, never two of one component, and a limited number at a time.
/// A report that is overdue is a result as well. One thread, the loop's.
class CScheduler {
public:
    /// @param onResult  is called for each result
    using OnResult = std::function<void(const std::string& name, const CheckResult& result)>;
    CScheduler(CLoop& loop, CComponents& components, OnResult onResult)
        : loop_(loop), components_(components), onResult_(std::move(onResult)) {}
    ~CScheduler() = default;
    CScheduler(const CScheduler&) = delete;
    CScheduler& operator=(const CScheduler&) = delete;

    /// Goes on with the components as they are. New checks, and those of another command, are spread over their
    /// intervals, of 10 minutes at most; others are neither put off nor hastened, unless a shorter interval does it,
    /// and neither are reports that are due, however often this is called. Runs that are under way go on; of another
    /// command than now, they end and begin anew.
    /// @param parallel  checks at a time
    void Restart(std::uint32_t parallel);

    /// Checks a component as soon as there is room.
    void CheckNow(const std::string& name);

    /// Somebody has reported: the next report is due within the component's freshness.
    void OnReport(const Component& component);

private:
    using Clock = std::chrono::steady_clock;

    struct Timer {
        Clock::time_point begun;
        std::chrono::milliseconds delay;
        std::vector<std::string> command;  // empty: a report is awaited
        CLoopSource source;
    };

    void AwaitReport(const Component& component, Clock::time_point begun);
    void Plan(Component& component, Clock::time_point begun, std::chrono::milliseconds delay);
    void SetTimer(const Component& component, Clock::time_point begun, std::chrono::milliseconds delay,
                  std::function<void()> work);
    void EndRun(Component& component);
    void Begin(const std::string& name);
    void BeginWaiting();
    void OnDone(const std::string& name, const CheckResult& result);
    void OnHeld(const std::string& name, const CheckResult& result);

    CLoop& loop_;
    CComponents& components_;
    const OnResult onResult_;
    std::uint32_t parallel_ = 1;
    std::map<std::string, Timer> timers_;
    std::map<std::string, std::unique_ptr<CCheckRun>> running_;
    std::map<std::string, std::unique_ptr<CCheckRun>> held_;  // that were killed, and do not go
    std::deque<std::string> waiting_;                         // for room
};
