// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <list>

#include "platform/threads/CriticalSection.h"
#include "sip/SipJson.h"

class CAgentLink;

/// The alerts that nobody has acknowledged yet: copies of their trigger events, oldest first. At most 100; the oldest
/// makes room for a new one.
///
/// Any thread. The lock is recursive, and held while the list changes and the new alert is announced: who is told of it
/// finds it in the list.
class CPendingAlerts {
public:
    static constexpr std::size_t kCapacity = 100;

    explicit CPendingAlerts(CAgentLink& link) : link_(link) {}

    /// Keeps a copy of the event and announces it.
    void Add(const SipJson& event);

    /// Copies the newest alert.
    /// @return false when there is none
    bool GetNewest(SipJson& out);
    void Clear();

    /// Traces how many there are. May be stale by the time it is looked at.
    bool IsAnyPending() const;

    /// As IsAnyPending, without the trace.
    std::size_t Count() const { return count_.load(std::memory_order_relaxed); }

    /// For who must stay in step with the list for longer than one call.
    CCriticalSection& Lock() EM_THREAD_ATTRIBUTE(lock_returned(lock_)) { return lock_; }

private:
    CAgentLink& link_;
    CCriticalSection lock_;
    std::list<SipJson> alerts_ EM_GUARDED_BY(lock_);
    std::atomic<std::size_t> count_{0};
};
