// SPDX-License-Identifier: Apache-2.0
#include "platform/threads/CriticalSection.h"

// The analysis knows no recursion: it sees a mutex that is locked or unlocked on some paths only.

void CCriticalSection::Lock() EM_NO_THREAD_SAFETY_ANALYSIS {
    if (!enabled_) {
        return;
    }
    const pthread_t self = ::pthread_self();
    if (owner_.load(std::memory_order_relaxed) != self) {
        mutex_.Lock();
        owner_.store(self, std::memory_order_relaxed);
    }
    ++depth_;
}

void CCriticalSection::Unlock() EM_NO_THREAD_SAFETY_ANALYSIS {
    if (owner_.load(std::memory_order_relaxed) != ::pthread_self()) {
        return;
    }
    if (--depth_ == 0) {
        owner_.store(0, std::memory_order_relaxed);
        mutex_.Unlock();
    }
}
