// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Ledger.h"

#include <algorithm>

#include "sip/Vocabulary.h"

namespace {

constexpr std::uint32_t kOk = 1;
constexpr std::uint32_t kError = 3;
constexpr std::size_t kKeptByModule = 100;  // pending alerts; the oldest ones go

}  // namespace

const char* CLedger::Alert::Severity() const {
    return status == kOk ? "ok" : status == kError ? "error" : "warning";
}

void CLedger::BeginEvent(std::uint32_t id, const std::string& name, const std::string& designation,
                         std::uint32_t status) {
    const std::lock_guard guard(lock_);
    const std::time_t now = std::time(nullptr);
    auto found = std::ranges::find(components_, id, &Component::id);
    if (found == components_.end()) {
        found = components_.insert(found, {id, name, designation, status, now, now});
    }
    if (found->status != status) {
        found->since = now;
    }
    *found = {id, name, designation, status, found->since, now};
    delivering_ = id;
}

void CLedger::EndEvent(std::uint32_t systemStatus) {
    const std::lock_guard guard(lock_);
    delivering_ = 0;
    systemStatus_ = systemStatus;
    if (systemStatus == kOk) {
        pending_.clear();
    }
}

void CLedger::OnModuleEvent(const Command& event) {
    const std::lock_guard guard(lock_);
    if (event.oc == kAcknowledgeAlerts) {
        pending_.clear();
        return;
    }
    const auto found = std::ranges::find(components_, delivering_, &Component::id);
    if (event.oc != kPendingAlert || found == components_.end()) {
        return;
    }
    pending_.push_back({found->name, found->designation, found->status, std::time(nullptr)});
    if (pending_.size() > kKeptByModule) {
        pending_.pop_front();
    }
}

void CLedger::OnMail(bool sent) {
    const std::lock_guard guard(lock_);
    ++(sent ? mails_.sent : mails_.failed);
    mails_.last = std::time(nullptr);
}

void CLedger::OnRestart() {
    const std::lock_guard guard(lock_);
    pending_.clear();
}

std::uint32_t CLedger::SystemStatus() const {
    const std::lock_guard guard(lock_);
    return systemStatus_;
}

std::vector<CLedger::Component> CLedger::Components() const {
    const std::lock_guard guard(lock_);
    return components_;
}

std::deque<CLedger::Alert> CLedger::Pending() const {
    const std::lock_guard guard(lock_);
    return pending_;
}

CLedger::Mails CLedger::MailCounts() const {
    const std::lock_guard guard(lock_);
    return mails_;
}
