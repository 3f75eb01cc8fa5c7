#pragma once

#include <atomic>
#include <list>

#include "platform/CriticalSection.h"
#include "sip/SipJson.h"

/// The alerts that nobody has acknowledged yet: copies of their trigger events, oldest first. At most 100; the oldest
/// makes room for a new one.
///
/// Count may be asked at any time. Everything else needs Lock, which the caller holds for as long as what it does must
/// stay in step with the list (the announcing event, for one). The lock is recursive.
class CPendingAlerts {
public:
    static constexpr std::size_t kCapacity = 100;

    CCriticalSection& Lock() EM_THREAD_ATTRIBUTE(lock_returned(lock_)) { return lock_; }

    /// @return the number of alerts after the addition
    std::size_t Add(const SipJson& event) EM_REQUIRES(lock_);

    /// @return the newest alert, null when there is none; valid while the lock is held
    const SipJson* Newest() const EM_REQUIRES(lock_);
    void Clear() EM_REQUIRES(lock_);

    /// May be stale by the time it is looked at.
    std::size_t Count() const { return count_.load(std::memory_order_relaxed); }

private:
    CCriticalSection lock_;
    std::list<SipJson> alerts_ EM_GUARDED_BY(lock_);
    std::atomic<std::size_t> count_{0};
};
