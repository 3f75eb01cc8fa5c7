// SPDX-License-Identifier: Apache-2.0
#pragma once

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

    /// Begins anew with the components as they are; the first checks are spread over their intervals. Runs that are
    /// under way for components that stay go on.
    /// @param parallel  checks at a time
    void Restart(std::uint32_t parallel);

    /// Checks a component as soon as there is room.
    void CheckNow(const std::string& name);

    /// Somebody has reported: the next report is due within the component's freshness.
    void OnReport(Component& component);

private:
    void Plan(Component& component, std::chrono::milliseconds delay);
    void Begin(const std::string& name);
    void BeginWaiting();
    void OnDone(const std::string& name, const CheckResult& result);

    CLoop& loop_;
    CComponents& components_;
    const OnResult onResult_;
    std::uint32_t parallel_ = 1;
    std::map<std::string, CLoopSource> timers_;
    std::map<std::string, std::unique_ptr<CCheckRun>> running_;
    std::deque<std::string> waiting_;  // for room
};
