// SPDX-License-Identifier: Apache-2.0
#include "platform/threads/EventBlock.h"

#include <cerrno>
#include <chrono>
#include <ctime>
#include <new>
#include <utility>

#include "platform/Cancellation.h"
#include "platform/diagnostics/Trace.h"
#include "platform/threads/Event.h"

namespace {

timespec Deadline(unsigned int timeoutMs, const CEventBlock& block) {
    using namespace std::chrono;
    timespec begin{};
    ::clock_gettime(CLOCK_MONOTONIC, &begin);
    const nanoseconds time = seconds(begin.tv_sec) + nanoseconds(begin.tv_nsec) + milliseconds(timeoutMs);
    const timespec end{floor<seconds>(time).count(), (time % seconds(1)).count()};
    EM_TRACE(5,
             "prepare time for waiting on event %p <%s> (ts_beg:sec=%ld,ts_beg:nsec=%ld) -> (ts:sec=%ld,ts:nsec=%ld)\n",
             static_cast<const void*>(&block), block.Label(), begin.tv_sec, begin.tv_nsec, end.tv_sec, end.tv_nsec);
    return end;
}

}  // namespace

/// A thread inside Wait, queued for the length of a scope, which also a cancelled thread leaves.
class CEventBlock::CWaiter {
public:
    explicit CWaiter(CEventBlock& block) EM_REQUIRES(block.mutex) : block_(block) { *LinkTo(nullptr) = this; }
    ~CWaiter() EM_NO_THREAD_SAFETY_ANALYSIS {
        *LinkTo(this) = next_;
        if (release_ == Release::BySet && !block_.manualReset) {  // not taken: a cancelled thread hands the signal on
            block_.Signal();
            block_.Wake();
        }
    }
    CWaiter(const CWaiter&) = delete;
    CWaiter& operator=(const CWaiter&) = delete;

    void Let(Release how) { release_ = how; }
    bool IsReleased() const { return release_ != Release::None; }
    bool TakeRelease() { return std::exchange(release_, Release::None) != Release::None; }
    CWaiter* Next() const { return next_; }

private:
    CWaiter** LinkTo(const CWaiter* waiter) EM_NO_THREAD_SAFETY_ANALYSIS {
        CWaiter** link = &block_.waiters;
        while (*link != waiter) {
            link = &(*link)->next_;
        }
        return link;
    }

    CEventBlock& block_;
    CWaiter* next_ = nullptr;
    Release release_ = Release::None;
};

std::unique_ptr<CEventBlock> CEventBlock::Make(bool initialState, bool manual, const char* eventName) {
    std::unique_ptr<CEventBlock> block;
    try {
        block = std::make_unique<CEventBlock>(initialState, manual, eventName);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    const auto isDone = [&](int result, const char* step, const char* preposition) {
        if (result != 0) {
            EM_TRACE(1, "%s failed (ret=%d) %s event %p <%s> (IsSignaled=%d)\n", step, result, preposition,
                     static_cast<const void*>(block.get()), block->Label(), initialState);
        }
        return result == 0;
    };
    const bool isMade = isDone(::pthread_condattr_setclock(&block->conditionAttributes, CLOCK_MONOTONIC),
                               "pthread_condattr_setclock(): ## ERROR ##: Set CLOCK_MONOTONIC", "for") &&
                        isDone(::pthread_cond_init(&block->condition, &block->conditionAttributes),
                               "pthread_cond_init(), CLOCK_MONOTONIC: ## ERROR ##:", "on") &&
                        isDone(::pthread_mutex_init(&block->mutex.handle, nullptr),
                               "pthread_mutex_init(), CLOCK_MONOTONIC: ## ERROR ##:", "on");
    return isMade ? std::move(block) : nullptr;
}

bool CEventBlock::ReleaseWaiters(bool all, Release how) {
    bool found = false;
    for (CWaiter* waiter = waiters; waiter != nullptr && (all || !found); waiter = waiter->Next()) {
        if (!waiter->IsReleased()) {
            waiter->Let(how);
            found = true;
        }
    }
    return found;
}

void CEventBlock::Signal() {
    const bool found = ReleaseWaiters(manualReset, Release::BySet);
    signalled = manualReset || !found;
}

int CEventBlock::Wait(unsigned int timeoutMs) {
    if (signalled) {
        const CCancellationPause pause;
        signalled = manualReset;
        EM_TRACE(5, "event %p <%s> (IsManual=%d) has been already signaled --> New state: IsSignaled=%d\n",
                 static_cast<const void*>(this), Label(), manualReset, signalled);
        return 0;
    }
    CWaiter waiter(*this);
    const bool forever = timeoutMs == CEvent::kForever;
    const timespec deadline = forever ? timespec{} : Deadline(timeoutMs, *this);
    int result = 0;
    // A condition wakes at times without a reason, and an interrupted wait goes on: the release decides.
    while (!waiter.IsReleased() && (result == 0 || result == EINTR)) {
        result = forever ? ::pthread_cond_wait(&condition, &mutex.handle)
                         : ::pthread_cond_timedwait(&condition, &mutex.handle, &deadline);
    }
    return waiter.TakeRelease() ? 0 : result;
}
