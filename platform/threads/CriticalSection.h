// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <pthread.h>

#include "platform/Mutex.h"

/// A recursive lock: the thread that holds it may lock it again, and unlocks it as often. Any thread.
class EM_CAPABILITY("mutex") CCriticalSection {
public:
    /// @param enabled  false makes a lock that never locks, for data that one thread alone uses
    explicit CCriticalSection(bool enabled = true) : enabled_(enabled) {}
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;
    ~CCriticalSection() = default;

    void Lock() EM_ACQUIRE();

    /// Does nothing on a thread that does not hold the lock.
    void Unlock() EM_RELEASE();

private:
    CMutex mutex_;
    // A thread finds its own id here only if it stored it itself, so relaxed order is enough.
    std::atomic<pthread_t> owner_{};
    unsigned int depth_{};  // the owner's
    const bool enabled_;
};

/// Holds a CCriticalSection for the length of a scope.
class EM_SCOPED_CAPABILITY CCriticalSectionLock {
public:
    explicit CCriticalSectionLock(CCriticalSection& section) EM_ACQUIRE(section) : section_(section) {
        section_.Lock();
    }
    ~CCriticalSectionLock() EM_RELEASE() { section_.Unlock(); }
    CCriticalSectionLock(const CCriticalSectionLock&) = delete;
    CCriticalSectionLock& operator=(const CCriticalSectionLock&) = delete;

private:
    CCriticalSection& section_;
};
