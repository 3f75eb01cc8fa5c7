#include "platform/EventBlock.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>

#include "platform/Event.h"
#include "platform/Trace.h"

namespace {

timespec Deadline(unsigned int timeoutMs, const CEventBlock& block) {
    constexpr long kNanosecondsPerSecond = 1000000000;
    timespec begin{};
    ::clock_gettime(CLOCK_MONOTONIC, &begin);
    timespec end = begin;
    end.tv_sec += timeoutMs / 1000;
    end.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000;
    if (end.tv_nsec >= kNanosecondsPerSecond) {
        end.tv_nsec -= kNanosecondsPerSecond;
        ++end.tv_sec;
    }
    EM_TRACE(5,
             "prepare time for waiting on event %p <%s> (ts_beg:sec=%ld,ts_beg:nsec=%ld) -> (ts:sec=%ld,ts:nsec=%ld)\n",
             static_cast<const void*>(&block), block.Label(), begin.tv_sec, begin.tv_nsec, end.tv_sec, end.tv_nsec);
    return end;
}

/// Counts a waiter for the length of a scope, which also a cancelled thread leaves.
class CWaiter {
public:
    explicit CWaiter(CEventBlock& block) EM_REQUIRES(block.mutex) : block_(block) { ++block_.waiters; }
    ~CWaiter() EM_NO_THREAD_SAFETY_ANALYSIS {
        --block_.waiters;
        block_.releases = std::min(block_.releases, block_.waiters);
    }
    CWaiter(const CWaiter&) = delete;
    CWaiter& operator=(const CWaiter&) = delete;

private:
    CEventBlock& block_;
};

}  // namespace

std::unique_ptr<CEventBlock> CEventBlock::Make(bool initialState, bool manual, const char* eventName) {
    std::unique_ptr<CEventBlock> block;
    try {
        block = std::make_unique<CEventBlock>(initialState, manual, eventName);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    const void* id = block.get();
    const char* label = block->Label();

    int result = ::pthread_condattr_setclock(&block->conditionAttributes, CLOCK_MONOTONIC);
    if (result != 0) {
        EM_TRACE(1,
                 "pthread_condattr_setclock(): ## ERROR ##: Set CLOCK_MONOTONIC failed (ret=%d) for event %p <%s> "
                 "(IsSignaled=%d)\n",
                 result, id, label, initialState);
        return nullptr;
    }
    result = ::pthread_cond_init(&block->condition, &block->conditionAttributes);
    if (result != 0) {
        EM_TRACE(1,
                 "pthread_cond_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=%d) on event %p <%s> "
                 "(IsSignaled=%d)\n",
                 result, id, label, initialState);
        return nullptr;
    }
    result = ::pthread_mutex_init(&block->mutex.handle, nullptr);
    if (result != 0) {
        EM_TRACE(1,
                 "pthread_mutex_init(), CLOCK_MONOTONIC: ## ERROR ##: failed (ret=%d) on event %p <%s> "
                 "(IsSignaled=%d)\n",
                 result, id, label, initialState);
        return nullptr;
    }
    return block;
}

void CEventBlock::ReleaseWaiters(bool all) {
    ++pulses;
    releases = all ? waiters : std::min(releases + 1, waiters);
    Wake(all);
}

int CEventBlock::Wait(unsigned int timeoutMs) {
    const CWaiter waiter(*this);
    if (signalled) {
        signalled = manualReset;
        EM_TRACE(5, "event %p <%s> (IsManual=%d) has been already signaled --> New state: IsSignaled=%d\n",
                 static_cast<const void*>(this), Label(), manualReset, signalled);
        return 0;
    }
    const bool forever = timeoutMs == CEvent::kForever;
    const timespec deadline = forever ? timespec{} : Deadline(timeoutMs, *this);
    const unsigned long long entered = pulses;
    int result = 0;
    // A condition wakes at times without a reason, and an interrupted wait goes on: the state decides.
    while (result == 0 || result == EINTR) {
        result = forever ? ::pthread_cond_wait(&condition, &mutex.handle)
                         : ::pthread_cond_timedwait(&condition, &mutex.handle, &deadline);
        if (releases > 0 && pulses != entered) {
            --releases;
            return 0;
        }
        if (signalled) {
            signalled = manualReset;
            return 0;
        }
    }
    return result;
}
