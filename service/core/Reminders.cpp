#include "service/core/Reminders.h"

#include <array>

#include "service/loop/Journal.h"

namespace {

constexpr auto kMailRetries = std::to_array<std::chrono::minutes>({
    std::chrono::minutes(1),
    std::chrono::minutes(5),
    std::chrono::minutes(15),
    std::chrono::minutes(60),
});

}  // namespace

void CReminders::OnTold(const Component& component, std::chrono::milliseconds interval) {
    const std::string& name = component.config.name;
    const auto again = [this, name] { tellAgain_(name); };
    Plan& plan = plans_[name];
    plan.reminder = {};
    plan.retry = {};
    if (component.IsBad() && interval.count() > 0) {
        plan.reminder = loop_.After(interval, again);
    }
    if (!component.isMailDue) {
        plan.lostMails = 0;
    } else if (plan.lostMails < kMailRetries.size()) {
        const auto pause = kMailRetries.at(plan.lostMails++);
        Journal(4, name + ": no server took the mail; it is tried again in " + std::to_string(pause.count()) + " min");
        plan.retry = loop_.After(pause, again);
    } else {
        Journal(3, name + ": no server took the mail, and it is not tried again before the next event or start");
    }
}
