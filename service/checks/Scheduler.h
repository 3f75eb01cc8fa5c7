// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

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

    /// Goes on with the components as they are. New checks are spread over their intervals, of 10 minutes at most;
    /// others are not put off, and neither are reports that are due, however often this is called. Runs that are under
    /// way for components that stay go on.
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
        Clock::time_point due;
        bool isForReport;
        CLoopSource source;
    };

    const Timer* Find(const std::string& name, bool isForReport) const;
    void AwaitReport(const Component& component, Clock::time_point begun);
    void Plan(Component& component, std::chrono::milliseconds delay);
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
