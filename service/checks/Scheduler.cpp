// SPDX-License-Identifier: Apache-2.0
#include "service/checks/Scheduler.h"

#include <algorithm>
#include <exception>
#include <utility>

void CScheduler::Restart(std::uint32_t parallel) {
    parallel_ = parallel;
    timers_.clear();
    waiting_.clear();
    std::erase_if(running_, [this](const auto& run) { return components_.Find(run.first) == nullptr; });
    const auto count = static_cast<std::int64_t>(components_.All().size());
    std::int64_t place = 0;
    for (Component& component : components_.All()) {
        if (!component.config.command.empty()) {
            Plan(component, component.config.interval * place++ / count);
        } else {
            OnReport(component);
        }
    }
}

void CScheduler::Plan(Component& component, std::chrono::milliseconds delay) {
    const std::string& name = component.config.name;
    component.next = std::time(nullptr) + std::chrono::duration_cast<std::chrono::seconds>(delay).count();
    timers_[name] = loop_.After(delay, [this, name] { CheckNow(name); });
}

void CScheduler::CheckNow(const std::string& name) {
    if (!running_.contains(name) && std::ranges::find(waiting_, name) == waiting_.end()) {
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
    const Component* component = components_.Find(name);
    if (component == nullptr || component->config.command.empty()) {
        return;
    }
    const auto onDone = [this, name](const CheckResult& result) { OnDone(name, result); };
    try {
        running_[name] =
            std::make_unique<CCheckRun>(loop_, component->config.command, component->config.timeout, onDone);
    } catch (const std::exception& error) {  // such as no descriptors left
        timers_[name] = loop_.After(component->config.retry, [this, name] { CheckNow(name); });
        onResult_(name, {.status = ComponentStatus::Warning, .text = FirstLine(error.what()), .isAnswer = false});
    }
}

void CScheduler::OnDone(const std::string& name, const CheckResult& result) {
    running_.erase(name);
    if (Component* component = components_.Find(name)) {
        onResult_(name, result);
        Plan(*component, component->badInRow > 0 ? component->config.retry : component->config.interval);
    }
    BeginWaiting();
}

void CScheduler::OnReport(Component& component) {
    if (component.config.freshness.count() == 0) {
        return;
    }
    const std::string& name = component.config.name;
    timers_[name] = loop_.After(component.config.freshness, [this, name] {
        onResult_(name, {.status = ComponentStatus::Warning, .text = "no report has come within the time set for it"});
        if (Component* overdue = components_.Find(name)) {
            OnReport(*overdue);
        }
    });
}
