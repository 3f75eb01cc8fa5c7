// SPDX-License-Identifier: Apache-2.0
#include "platform/threads/Event.h"

#include <cerrno>

#include "platform/Cancellation.h"
#include "platform/diagnostics/Trace.h"
#include "platform/threads/EventBlock.h"
#include "platform/threads/ModuleObjects.h"

// As soon as a waiter runs, it may destroy the event: Set and its like trace before that, and use no handle after it.
// A thread can be cancelled while it waits, and nowhere else: a signal that was set, or taken, is not lost.

CEvent::CEvent(bool initialState, bool manualReset, const char* name) {
    Attach(initialState, manualReset, name);
}

CEvent::CEvent(const CEvent& other) {
    Share(other);
}

CEvent& CEvent::operator=(const CEvent& other) {
    if (this != &other) {
        CEventBlock* const old = block_;
        Share(other);
        Release(old);
    }
    return *this;
}

CEvent::~CEvent() {
    Release(block_);
}

void CEvent::Attach(bool initialState, bool manualReset, const char* name) {
    const CCancellationPause pause;
    CEventTable& table = moduleObjects.eventTable;
    const CCriticalSectionLock eventLock(table.eventLock);
    const bool named = name != nullptr && *name != '\0';
    block_ = named ? table.Find(name) : nullptr;
    if (block_ != nullptr) {
        ++block_->referenceCount;
        const CEventMutexLock lock(block_->mutex);
        EM_TRACE(3, "refCount for event %p <%s> incremented (IsSignaled=%d)\n", static_cast<const void*>(block_),
                 block_->Label(), block_->signalled);
        if (block_->manualReset != manualReset) {
            EM_TRACE(1, "WARNING: manual setting mismatch for event %p <%s>\n", static_cast<const void*>(block_),
                     block_->Label());
        }
        return;
    }
    std::unique_ptr<CEventBlock> block = CEventBlock::Make(initialState, manualReset, name);
    if (block != nullptr && (!named || table.Insert(*block))) {
        block_ = block.release();
        EM_TRACE(3, "creating event %p <%s> (IsSignaled=%d)\n", static_cast<const void*>(block_), block_->Label(),
                 initialState);
    }
}

void CEvent::Share(const CEvent& other) {
    const CCancellationPause pause;
    const CCriticalSectionLock eventLock(moduleObjects.eventTable.eventLock);
    block_ = other.block_;
    closed_ = other.closed_.load();
    if (block_ == nullptr) {
        return;
    }
    ++block_->referenceCount;
    const CEventMutexLock lock(block_->mutex);
    EM_TRACE(3, "incr refcount on event %p <%s> (IsSignaled=%d,IsManual=%d)\n", static_cast<const void*>(block_),
             block_->Label(), block_->signalled, block_->manualReset);
}

void CEvent::Release(CEventBlock* block) {
    if (block == nullptr) {
        return;
    }
    const CCancellationPause pause;
    {
        const CEventMutexLock lock(block->mutex);
        EM_TRACE(3, "decr refcount on event %p <%s> (IsSignaled=%d)\n", static_cast<const void*>(block), block->Label(),
                 block->signalled);
    }
    Drop(block);
}

void CEvent::Drop(CEventBlock* block) {
    for (int count = block->referenceCount; count > 1;) {  // not the last: no need of the global lock
        if (block->referenceCount.compare_exchange_weak(count, count - 1)) {
            return;
        }
    }
    CEventTable& table = moduleObjects.eventTable;
    const CCriticalSectionLock eventLock(table.eventLock);
    if (--block->referenceCount > 0) {
        return;
    }
    {
        const CEventMutexLock lock(block->mutex);
        EM_TRACE(3, "deleting event %p <%s> (IsSignaled=%d)\n", static_cast<const void*>(block), block->Label(),
                 block->signalled);
    }
    table.Remove(*block);
    std::default_delete<CEventBlock>()(block);
}

bool CEvent::Create(bool initialState, bool manualReset, const char* name) {
    const CCancellationPause pause;
    closed_ = false;
    if (block_ == nullptr) {
        Attach(initialState, manualReset, name);
        return block_ != nullptr;
    }
    const CEventMutexLock lock(block_->mutex);
    EM_TRACE(3,
             "Create event %p <%s>, changing attributes (IsSignaled=%d,IsManual=%d) --> "
             "(IsSignaled=%d,IsManual=%d)\n",
             static_cast<const void*>(block_), block_->Label(), block_->signalled, block_->manualReset, initialState,
             manualReset);
    block_->manualReset = manualReset;
    block_->signalled = false;
    if (initialState) {
        block_->Signal();
        block_->Wake();
    }
    return true;
}

bool CEvent::Open(const char* /*name*/, unsigned int /*access*/, bool /*inherit*/) {
    return true;
}

bool CEvent::Close() {
    const CCancellationPause pause;
    if (block_ == nullptr) {
        return false;
    }
    const CEventMutexLock lock(block_->mutex);
    if (closed_.exchange(true)) {
        return false;
    }
    EM_TRACE(3, "Close event %p <%s> IsSignaled=%d --> IsSignaled=1\n", static_cast<const void*>(block_),
             block_->Label(), block_->signalled);
    block_->signalled = true;
    block_->ReleaseWaiters(true, CEventBlock::Release::BySet);
    block_->Wake();
    return true;
}

bool CEvent::Set() const {
    const CCancellationPause pause;
    CEventBlock* const block = block_;
    if (block == nullptr) {
        return false;
    }
    {
        const CEventMutexLock lock(block->mutex);
        if (closed_) {
            return false;
        }
        EM_TRACE(5, "Set event %p <%s> IsSignaled=%d --> IsSignaled=1\n", static_cast<const void*>(block),
                 block->Label(), block->signalled);
        block->Signal();
        if (block->waiters == nullptr) {
            return true;
        }
        ++block->referenceCount;
    }
    // Without the mutex, which the waiter wants at once. The handle may be gone by now, the block is held.
    block->Wake();
    Drop(block);
    return true;
}

bool CEvent::Pulse() const {
    const CCancellationPause pause;
    if (block_ == nullptr) {
        return false;
    }
    const CEventMutexLock lock(block_->mutex);
    if (closed_) {
        return false;
    }
    EM_TRACE(5, "Pulse event %p <%s> IsSignaled=%d --> IsSignaled=0\n", static_cast<const void*>(block_),
             block_->Label(), block_->signalled);
    block_->signalled = false;
    block_->ReleaseWaiters(block_->manualReset, CEventBlock::Release::ByPulse);
    block_->Wake();
    return true;
}

bool CEvent::Reset() const {
    const CCancellationPause pause;
    if (block_ == nullptr) {
        return false;
    }
    const CEventMutexLock lock(block_->mutex);
    if (closed_) {
        return false;
    }
    EM_TRACE(5, "Reset event %p <%s>: IsSignaled=%d --> IsSignaled=0\n", static_cast<const void*>(block_),
             block_->Label(), block_->signalled);
    block_->signalled = false;
    return true;
}

bool CEvent::IsSet() const {
    const CCancellationPause pause;
    if (block_ == nullptr) {
        return false;
    }
    const CEventMutexLock lock(block_->mutex);
    if (closed_) {
        return false;
    }
    EM_TRACE(5, "Check event %p <%s> (IsSignaled=%d)\n", static_cast<const void*>(block_), block_->Label(),
             block_->signalled);
    return block_->signalled;
}

unsigned int CEvent::Wait(unsigned int timeoutMs, bool trace) const {
    if (block_ == nullptr || closed_) {
        return kFailed;
    }
    if (trace && timeoutMs == kForever) {
        EM_TRACE(5, "\nwaiting forever on event %p", static_cast<const void*>(block_));
    } else if (trace) {
        EM_TRACE(5, "\nwaiting %dms on event %p", static_cast<int>(timeoutMs), static_cast<const void*>(block_));
    }
    int error{};
    bool signalled{};
    {
        const CEventMutexLock lock(block_->mutex);
        if (closed_) {
            return kFailed;
        }
        error = block_->Wait(timeoutMs);
        signalled = block_->signalled;
    }
    const CCancellationPause pause;  // who has taken the signal comes back with it
    const bool timedOut = error == ETIMEDOUT;
    const unsigned int result = error == 0 ? kSignalled : timedOut ? kTimeout : kFailed;
    EM_TRACE(5, "%s(%d,%d) on event %p <%s> (IsSignaled=%d)\n",
             error == 0 ? "SIGNAL"
             : timedOut ? "TIMEOUT"
                        : "FAILURE",
             static_cast<int>(result), error, static_cast<const void*>(block_), block_->Label(), signalled);
    return result;
}
