// SPDX-License-Identifier: Apache-2.0
#include "service/checks/Scheduler.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace {

// So that nobody waits hours for the first result of a check that runs once in so long.
constexpr std::chrono::milliseconds kLongestSpread = std::chrono::minutes(10);

}  // namespace

void CScheduler::Restart(std::uint32_t parallel) {
    parallel_ = parallel;
    const auto isGone = [this](const std::string& name) { return components_.Find(name) == nullptr; };
    std::erase_if(timers_, [&](const auto& timer) { return isGone(timer.first); });
    std::erase_if(waiting_, isGone);
    for (auto* const runs : {&running_, &held_}) {
        std::erase_if(*runs, [&](const auto& run) { return isGone(run.first); });
    }
    const auto count = static_cast<std::int64_t>(components_.All().size());
    std::int64_t place = 0;
    const auto now = Clock::now();
    for (Component& component : components_.All()) {
        const std::string& name = component.config.name;
        const bool isForReport = component.config.command.empty();
        const Timer* const timer = Find(name, isForReport);
        if (isForReport) {
            component.next = 0;
            AwaitReport(component, timer != nullptr ? timer->begun : now);
            continue;
        }
        const std::chrono::milliseconds slot = std::min(component.config.interval, kLongestSpread) * place++ / count;
        const auto left =
            timer != nullptr ? std::chrono::duration_cast<std::chrono::milliseconds>(timer->due - now) : slot;
        Plan(component, std::clamp(left, std::chrono::milliseconds(0), slot));
    }
    BeginWaiting();
}

const CScheduler::Timer* CScheduler::Find(const std::string& name, bool isForReport) const {
    const auto timer = timers_.find(name);
    return timer != timers_.end() && timer->second.isForReport == isForReport ? &timer->second : nullptr;
}

void CScheduler::Plan(Component& component, std::chrono::milliseconds delay) {
    const std::string& name = component.config.name;
    const auto now = Clock::now();
    component.next = std::time(nullptr) + std::chrono::duration_cast<std::chrono::seconds>(delay).count();
    timers_[name] = {.begun = now, .due = now + delay, .isForReport = false, .source = loop_.After(delay, [this, name] {
                         CheckNow(name);
                     })};
}

void CScheduler::CheckNow(const std::string& name) {
    if (!running_.contains(name) && !held_.contains(name) && std::ranges::find(waiting_, name) == waiting_.end()) {
        waiting_.push_back(name);
    }
    BeginWaiting();
}

void CScheduler::BeginWaiting() {
    while (!waiting_.empty() && running_.size() < parallel_) {
        const std::string name = std::move(waiting_.front());
        waiting_.pop_front();
        Begin(name);
    }
}

void CScheduler::Begin(const std::string& name) {
    Component* component = components_.Find(name);
    if (component == nullptr || component->config.command.empty()) {
        return;
    }
    const auto onDone = [this, name](const CheckResult& result) { OnDone(name, result); };
    const auto onHeld = [this, name](const CheckResult& result) { OnHeld(name, result); };
    try {
        running_[name] =
            std::make_unique<CCheckRun>(loop_, component->config.command, component->config.timeout, onDone, onHeld);
    } catch (const std::exception& error) {  // such as no descriptors left
        Plan(*component, component->config.retry);
        onResult_(name, {.status = ComponentStatus::Warning, .text = FirstLine(error.what()), .isAnswer = false});
    }
}

void CScheduler::OnDone(const std::string& name, const CheckResult& result) {
    running_.erase(name);
    held_.erase(name);
    if (Component* component = components_.Find(name)) {
        onResult_(name, result);
        if (!component->config.command.empty()) {  // which a reload may have taken
            Plan(*component, component->badInRow > 0 ? component->config.retry : component->config.interval);
        }
    }
    BeginWaiting();
}

/// It takes no room from the others: one dead server may hold many.
void CScheduler::OnHeld(const std::string& name, const CheckResult& result) {
    held_.insert(running_.extract(name));
    onResult_(name, result);
    BeginWaiting();
}

void CScheduler::OnReport(const Component& component) {
    if (component.config.command.empty()) {
        AwaitReport(component, Clock::now());
    }
}

void CScheduler::AwaitReport(const Component& component, Clock::time_point begun) {
    const std::string& name = component.config.name;
    if (component.config.freshness.count() == 0) {
        timers_.erase(name);
        return;
    }
    const auto due = begun + component.config.freshness;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
    timers_[name] = {.begun = begun,
                     .due = due,
                     .isForReport = true,
                     .source = loop_.After(std::max(left, std::chrono::milliseconds(0)), [this, name] {
                         onResult_(name, {.status = ComponentStatus::Warning,
                                          .text = "no report has come within the time set for it"});
                         if (const Component* overdue = components_.Find(name)) {
                             OnReport(*overdue);
                         }
                     })};
}
