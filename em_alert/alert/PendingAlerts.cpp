// SPDX-License-Identifier: Apache-2.0
#include "em_alert/alert/PendingAlerts.h"

#include "em_alert/values/AgentLink.h"
#include "platform/diagnostics/Trace.h"

void CPendingAlerts::Add(const SipJson& event) {
    const CCriticalSectionLock lock(lock_);
    std::list<SipJson> entry;  // made first: should memory run out, the oldest alert is still there
    entry.push_back(event);
    if (alerts_.size() >= kCapacity) {
        alerts_.pop_front();
    }
    alerts_.splice(alerts_.end(), entry);
    count_ = alerts_.size();
    EM_TRACE(2, "\nEM_ALERT            : Alert 0x%04X-0x%04X added to pending alerts (%d)", event.GetElem("OC"),
             event.GetElem("OE"), static_cast<int>(alerts_.size()));
    link_.Announce(kPendingAlert);
}

bool CPendingAlerts::GetNewest(SipJson& out) {
    const CCriticalSectionLock lock(lock_);
    if (alerts_.empty()) {
        return false;
    }
    out = alerts_.back();
    return true;
}

void CPendingAlerts::Clear() {
    const CCriticalSectionLock lock(lock_);
    EM_TRACE(2, "\nEM_ALERT            : Clear all pending alerts (%d)", static_cast<int>(Count()));
    alerts_.clear();
    count_ = 0;
}

bool CPendingAlerts::IsAnyPending() const {
    const std::size_t count = Count();
    EM_TRACE(2, "\nEM_ALERT            : %d alerts are pending", static_cast<int>(count));
    return count != 0;
}
