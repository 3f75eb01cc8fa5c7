// SPDX-License-Identifier: Apache-2.0
#include "service/core/MailRetries.h"

#include <array>

#include "service/loop/Journal.h"

namespace {

constexpr std::chrono::seconds kLongestMail{32};  // two servers that say nothing

constexpr auto kPauses = std::to_array<std::chrono::minutes>({
    std::chrono::minutes(1),
    std::chrono::minutes(5),
    std::chrono::minutes(15),
    std::chrono::minutes(60),
});

}  // namespace

void CMailRetries::OnTold(const std::string& subject, bool isLost) {
    if (!isLost) {
        Forget(subject);
        return;
    }
    Plan& plan = plans_[subject];
    if (plan.lostMails == kPauses.size()) {
        plan.timer = {};
        Journal(3, subject + ": no server took the mail, and it is not tried again before the next event or start");
        return;
    }
    const auto pause = kPauses.at(plan.lostMails++);
    Journal(4, subject + ": no server took the mail; it is tried again in " + std::to_string(pause.count()) + " min");
    plan.due = std::chrono::steady_clock::now() + pause;
    plan.timer = loop_.After(pause, [this, subject] { tellAgain_(subject); });
}

bool CMailRetries::IsNear(const std::string& subject) const {
    const auto plan = plans_.find(subject);
    return plan != plans_.end() && plan->second.timer.IsSet() &&
           plan->second.due - std::chrono::steady_clock::now() < kLongestMail;
}
