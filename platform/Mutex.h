// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>

#include "platform/ThreadAnnotations.h"

/// A plain mutex that clang's thread-safety analysis understands (std::mutex carries no attributes in libstdc++).
class EM_CAPABILITY("mutex") CMutex {
public:
    void Lock() EM_ACQUIRE() { mutex_.lock(); }
    void Unlock() EM_RELEASE() { mutex_.unlock(); }
    bool TryLock() EM_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

private:
    std::mutex mutex_;
};

/// Holds a CMutex for the length of a scope.
class EM_SCOPED_CAPABILITY CMutexLock {
public:
    explicit CMutexLock(CMutex& mutex) EM_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
    /// Takes over a lock that the caller holds.
    CMutexLock(CMutex& mutex, std::adopt_lock_t /*held*/) EM_REQUIRES(mutex) : mutex_(mutex) {}
    ~CMutexLock() EM_RELEASE() { mutex_.Unlock(); }
    CMutexLock(const CMutexLock&) = delete;
    CMutexLock& operator=(const CMutexLock&) = delete;

private:
    CMutex& mutex_;
};
