// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/Cancellation.h"
#include "platform/Mutex.h"
#include "platform/diagnostics/Trace.h"
#include "platform/threads/CriticalSection.h"
#include "platform/threads/Event.h"
#include "platform/threads/Thread.h"
#include "tasks/TaskQueue.h"
#include "tasks/TaskTrace.h"

/// The half of CTaskSerializer that does not know what a task carries: queues, wake event and worker thread. It has no
/// virtual operation, so that the table of CTaskSerializer holds its own operations only, in their order.
class CTaskSerializerBase {
public:
    /// The index of a level, 0 to the number of levels minus 1; a higher one is served first.
    using _TaskPriority = std::int32_t;

    CTaskSerializerBase(const CTaskSerializerBase&) = delete;
    CTaskSerializerBase& operator=(const CTaskSerializerBase&) = delete;

    /// Drops the pending tasks and waits, without limit, for the worker to finish the task it is at. Dropped tasks are
    /// not run, their events are not set and their records are never released. The levels refuse tasks from then on,
    /// also after another start. Takes at least 100 ms. When no worker runs, nothing of this happens: what
    /// is queued stays, and further tasks are queued.
    /// @return whether the worker has ended; true as well when none ran
    bool TerminateSerialization();

protected:
    CTaskSerializerBase(unsigned int levels, std::uint64_t queueCapacity);
    ~CTaskSerializerBase() = default;

    bool StartWorker(CThread::Function entry, void* argument);

    /// Tries a start again that failed (no memory, too many threads), and that was not given up by a termination.
    /// @return false when the worker is still missing
    bool StartMissingWorker(CThread::Function entry, void* argument);

    /// Whether a task may be queued at `level` now; traced when not.
    bool Accepts(_TaskPriority level) const;

    enum class Insertion { Done, Refused, Full };

    /// Queues a record, which is then the queue's, and wakes the worker.
    Insertion InsertRecord(void* record, _TaskPriority level);

    /// Waits until there may be a task.
    /// @return false when the worker has to end
    bool WaitForTask();

    /// @return the oldest record of the highest level that has one, null when none has
    void* TakeRecord(_TaskPriority& level);

    /// Calls `action` under the lock if the level's queue is empty. On the worker.
    template <class Action>
    void IfEmpty(_TaskPriority level, Action action) {
        const CTaskQueue& queue = *At(level).queue;
        if (!queue.IsEmpty()) {
            return;  // the worker alone takes tasks, so the queue would not be empty under the lock either
        }
        const CCriticalSectionLock lock(lock_);
        if (queue.IsEmpty()) {
            action();
        }
    }

    /// Calls one of the derived class's operations; an exception is traced and goes no further.
    template <class Action>
    static void Guarded(const char* operation, Action action) {
        try {
            action();
        } catch (...) {
            LetCancellationPass();
            EM_TRACE(1, "\n\nCTaskSerializer     : ## EXCEPTION in %s()! ##", operation);
        }
    }

    bool IsTerminating() const { return terminate_; }

    /// Reports a finished task to whom it may concern.
    /// @param event  may be null; may be gone as soon as it is set
    static void SetExternalEvent(const CEvent* event);

private:
    struct Level {
        std::unique_ptr<CTaskQueue> queue;
        std::atomic<bool> accepting{};
    };

    bool Start(CThread::Function entry, void* argument) EM_REQUIRES(workerLock_);
    bool PrepareWorker() EM_REQUIRES(workerLock_);

    bool IsLevel(_TaskPriority level) const { return level >= 0 && static_cast<unsigned int>(level) < numberOfLevels_; }

    Level& At(_TaskPriority level) const { return levels_[static_cast<std::size_t>(level)]; }

    const std::unique_ptr<Level[]> levels_;  // the queues are guarded by lock_
    CCriticalSection lock_;
    const CEvent wakeEvent_{false, true};
    CMutex workerLock_;  // held while the worker is started or stopped
    CThread worker_ EM_GUARDED_BY(workerLock_);
    std::atomic<bool> isWorkerMissing_{};
    const std::uint64_t stackSize_ = 0;
    const unsigned int numberOfLevels_;
    std::atomic<bool> terminate_{};
};
