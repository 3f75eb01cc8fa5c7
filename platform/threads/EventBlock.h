// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <pthread.h>
#include <string>

#include "platform/ThreadAnnotations.h"

class EM_CAPABILITY("mutex") CEventMutex {
public:
    void Lock() EM_ACQUIRE() { ::pthread_mutex_lock(&handle); }
    void Unlock() EM_RELEASE() { ::pthread_mutex_unlock(&handle); }

    pthread_mutex_t handle = {};
};

class EM_SCOPED_CAPABILITY CEventMutexLock {
public:
    explicit CEventMutexLock(CEventMutex& mutex) EM_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
    ~CEventMutexLock() EM_RELEASE() { mutex_.Unlock(); }
    CEventMutexLock(const CEventMutexLock&) = delete;
    CEventMutexLock& operator=(const CEventMutexLock&) = delete;

private:
    CEventMutex& mutex_;
};

/// The state that all handles of one event share; only CEvent uses it.
struct CEventBlock {
    CEventBlock(bool initialState, bool manual, const char* eventName)
        : manualReset(manual), signalled(initialState), name(eventName != nullptr ? eventName : "") {
        ::pthread_condattr_init(&conditionAttributes);
    }
    /// Also for a block whose Make failed half-way: zeroed, mutex and condition are valid ones that hold nothing.
    ~CEventBlock() {
        ::pthread_mutex_destroy(&mutex.handle);
        ::pthread_cond_destroy(&condition);
        ::pthread_condattr_destroy(&conditionAttributes);
    }
    CEventBlock(const CEventBlock&) = delete;
    CEventBlock& operator=(const CEventBlock&) = delete;

    /// The handles' way to a new block with a reference count of 1.
    /// @return null, traced, when memory or a POSIX object is missing
    static std::unique_ptr<CEventBlock> Make(bool initialState, bool manual, const char* eventName);

    class CWaiter;
    enum class Release { None, ByPulse, BySet };

    /// Lets waiters go, who then need neither the signalled flag, which may be reset before they run, nor any luck: a
    /// thread that comes later cannot take their place. Wake must follow.
    /// @param all  false: the one who waits longest
    /// @return false when nobody waits
    bool ReleaseWaiters(bool all, Release how) EM_REQUIRES(mutex);

    /// Releases who waits, as the kind of the event says, and leaves the event signalled unless that took the signal.
    /// Wake must follow.
    void Signal() EM_REQUIRES(mutex);

    /// All wake, as the condition would pick any, and who is not released waits on.
    void Wake() { ::pthread_cond_broadcast(&condition); }

    /// @return 0 signalled or released, ETIMEDOUT, or another errno value
    int Wait(unsigned int timeoutMs) EM_REQUIRES(mutex);

    const char* Label() const { return name.empty() ? "anon" : name.c_str(); }

    pthread_cond_t condition = {};
    CEventMutex mutex;
    // Handles, and calls of Set that still use the block. Reaches 0 under the event lock of the table only, so that who
    // finds a block there finds it alive.
    std::atomic<int> referenceCount{1};
    bool manualReset EM_GUARDED_BY(mutex);
    bool signalled EM_GUARDED_BY(mutex);
    const std::string name;                           // empty: anonymous, not in the table
    CWaiter* waiters EM_GUARDED_BY(mutex) = nullptr;  // threads inside Wait, linked in the order they came
    pthread_condattr_t conditionAttributes = {};
};
