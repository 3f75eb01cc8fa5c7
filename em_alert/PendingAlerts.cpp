#include "em_alert/PendingAlerts.h"

std::size_t CPendingAlerts::Add(const SipJson& event) {
    std::list<SipJson> entry;  // made first: should memory run out, the oldest alert is still there
    entry.push_back(event);
    if (alerts_.size() >= kCapacity) {
        alerts_.pop_front();
    }
    alerts_.splice(alerts_.end(), entry);
    count_ = alerts_.size();
    return alerts_.size();
}

const SipJson* CPendingAlerts::Newest() const {
    return alerts_.empty() ? nullptr : &alerts_.back();
}

void CPendingAlerts::Clear() {
    alerts_.clear();
    count_ = 0;
}
