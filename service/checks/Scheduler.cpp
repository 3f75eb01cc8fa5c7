// SPDX-License-Identifier: Apache-2.0
#include "service/checks/Scheduler.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace {

// So that nobody waits hours for the first result of a check that runs once in so long.
constexpr std::chrono::milliseconds kLongestSpread = std::chrono::minutes(10);

// Of a time that may be over.
std::chrono::milliseconds Left(std::chrono::steady_clock::time_point begun, std::chrono::milliseconds delay) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(begun + delay - std::chrono::steady_clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

// The wait between the end of one check and the next.
std::chrono::milliseconds Wait(const Component& component) {
    return component.badInRow > 0 ? component.config.retry : component.config.interval;
}

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
    for (Component& component : components_.All()) {
        const auto known = timers_.find(component.config.name);
        const bool isKnown = known != timers_.end() && known->second.command == component.config.command;
        const auto begun = isKnown ? known->second.begun : Clock::now();
        if (!isKnown) {
            EndRun(component);
        }
        if (component.config.command.empty()) {
            component.next = 0;
            AwaitReport(component, begun);
            continue;
        }
        const std::chrono::milliseconds slot = std::min(component.config.interval, kLongestSpread) * place++ / count;
        Plan(component, begun, isKnown ? std::min(known->second.delay, Wait(component)) : slot);
    }
    BeginWaiting();
}

/// What another command has found, or is about to find, says nothing of the component any more.
void CScheduler::EndRun(Component& component) {
    if (timers_.erase(component.config.name) > 0) {
        component.badInRow = 0;
    }
    if (running_.erase(component.config.name) + held_.erase(component.config.name) > 0) {
        waiting_.push_back(component.config.name);  // somebody may wait for its end
    }
}

void CScheduler::Plan(Component& component, Clock::time_point begun, std::chrono::milliseconds delay) {
    const auto left = Left(begun, delay);
    component.next = std::time(nullptr) + std::chrono::duration_cast<std::chrono::seconds>(left).count();
    SetTimer(component, begun, delay, [this, name = component.config.name] { CheckNow(name); });
}

void CScheduler::SetTimer(const Component& component, Clock::time_point begun, std::chrono::milliseconds delay,
                          std::function<void()> work) {
    timers_[component.config.name] = {.begun = begun,
                                      .delay = delay,
                                      .command = component.config.command,
                                      .source = loop_.After(Left(begun, delay), std::move(work))};
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
        Plan(*component, Clock::now(), component->config.retry);
        onResult_(name, {.status = ComponentStatus::Warning, .text = FirstLine(error.what()), .isAnswer = false});
    }
}

void CScheduler::OnDone(const std::string& name, const CheckResult& result) {
    running_.erase(name);
    held_.erase(name);
    if (Component* component = components_.Find(name)) {
        Component after = *component;
        CComponents::Take(after, result);
        Plan(*component, Clock::now(), Wait(after));  // now, as what is told of the result names the next time
        onResult_(name, result);
    }
    BeginWaiting();
}

/// It takes no room from the others: one dead server may hold many.
void CScheduler::OnHeld(const std::string& name, const CheckResult& result) {
    held_.insert(running_.extract(name));
    if (Component* component = components_.Find(name)) {
        component->next = 0;
    }
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
    SetTimer(component, begun, component.config.freshness, [this, name] {
        if (const Component* overdue = components_.Find(name)) {
            // What counts as critical is no better for want of a report.
            onResult_(name,
                      {.status = std::max(static_cast<ComponentStatus>(overdue->effective), ComponentStatus::Warning),
                       .text = "no report has come within the time set for it"});
            OnReport(*overdue);
        }
    });
}
