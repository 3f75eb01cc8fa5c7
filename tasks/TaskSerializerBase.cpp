#include "tasks/TaskSerializerBase.h"

#include <chrono>
#include <thread>

#include "platform/Cancellation.h"

namespace {

constexpr auto kThreadSwitchTime = std::chrono::milliseconds(100);
constexpr unsigned long kWorkerPriority = 83;  // real time, round robin
constexpr unsigned int kTerminationTimeout = 2000;

}  // namespace

CTaskSerializerBase::CTaskSerializerBase(unsigned int levels, std::uint64_t queueCapacity)
    : levels_(std::make_unique<Level[]>(levels)), numberOfLevels_(levels) {
    for (unsigned int i = 0; i < levels; ++i) {
        levels_[i].queue = std::make_unique<CTaskQueue>(queueCapacity);
    }
    EM_TRACE(4, TASK_TAG "Enable all Tasks");
    for (unsigned int i = 0; i < levels; ++i) {
        levels_[i].accepting = true;
    }
}

bool CTaskSerializerBase::StartWorker(CThread::Function entry, void* argument) {
    EM_TRACE(4, TASK_TAG "StartSerialization!");
    if (worker_.Exists()) {
        return true;
    }
    // A task that was queued before stays there until the next one wakes the worker; its callers know that.
    {
        const CCriticalSectionLock lock(lock_);
        if (!wakeEvent_.Reset()) {
            return false;  // no event: the worker could not wait
        }
        awake_ = false;
    }
    terminate_ = false;
    worker_.SetThreadName(moduleObjects.debugClient.ModuleName(), "_TaskHandler");
    const bool started =
        worker_.Start(entry, argument, kWorkerPriority, false, static_cast<unsigned int>(stackSize_), 0, true);
    std::this_thread::sleep_for(kThreadSwitchTime);
    return started;
}

bool CTaskSerializerBase::TerminateSerialization() {
    EM_TRACE(4, TASK_TAG "TerminateSerialization!");
    bool ended = true;
    if (worker_.Exists()) {
        EM_TRACE(4, TASK_TAG "Disable all Tasks");
        for (unsigned int i = 0; i < numberOfLevels_; ++i) {
            levels_[i].accepting = false;
        }
        {
            const CCriticalSectionLock lock(lock_);
            for (unsigned int i = 0; i < numberOfLevels_; ++i) {
                levels_[i].queue->Clear();
            }
            EM_TRACE(4, TASK_TAG "All pending tasks removed from queues!");
            // Under the lock, as the worker resets the event there and would else undo this.
            terminate_ = true;
            awake_ = true;
            wakeEvent_.Set();
        }
        std::this_thread::sleep_for(kThreadSwitchTime);
        ended = worker_.WaitForTermination(kTerminationTimeout);
        worker_.Kill(kTerminationTimeout);
    }
    EM_TRACE(5, TASK_TAG "  terminated");
    return ended;
}

bool CTaskSerializerBase::Accepts(_TaskPriority level) const {
    const bool accepts = IsLevel(level) && levels_[level].accepting;
    if (!accepts) {
        EM_TRACE(4, TASK_TAG "Manager locked for Tasks at level %d. Task ignored!", level);
    }
    return accepts;
}

CTaskSerializerBase::Insertion CTaskSerializerBase::InsertRecord(void* record, _TaskPriority level) {
    bool wake = false;
    {
        const CCriticalSectionLock lock(lock_);
        if (!Accepts(level)) {  // a termination came in between
            return Insertion::Refused;
        }
        if (!levels_[level].queue->Push(record)) {
            EM_TRACE(1, TASK_TAG "## ERROR! Task queue for priority %d is full", level);
            return Insertion::Full;
        }
        EM_TRACE(5, TASK_TAG "Task with priority %d inserted into task queue!", level);
        wake = !awake_.exchange(true);
    }
    // Outside the lock, which the worker wants as soon as it wakes. Should the worker have emptied the queues and reset
    // the event meanwhile, this wakes it once for nothing.
    if (wake) {
        wakeEvent_.Set();
    }
    return Insertion::Done;
}

bool CTaskSerializerBase::WaitForTask() {
    EM_TRACE(4, TASK_TAG "Waiting on task queue for next task ...");
    if (!awake_) {  // only the worker takes it back, so that the event is known to be set
        wakeEvent_.Wait(CEvent::kForever);
    }
    EM_TRACE(4, TASK_TAG "Wakeup from (any) task queue!");
    if (terminate_) {
        return false;
    }
    EM_TRACE(4, TASK_TAG "Checking Task queue for Task records ..");
    return true;
}

void* CTaskSerializerBase::TakeRecord(_TaskPriority& level) {
    const CCriticalSectionLock lock(lock_);
    for (level = static_cast<_TaskPriority>(numberOfLevels_) - 1; level >= 0; --level) {
        if (levels_[level].accepting) {
            if (void* record = levels_[level].queue->Pop(); record != nullptr) {
                return record;
            }
        }
    }
    // The event stays set while there is work, so that the worker does not sleep between tasks.
    if (!terminate_) {
        awake_ = false;
        wakeEvent_.Reset();
    }
    return nullptr;
}

void CTaskSerializerBase::SetExternalEvent(const CEvent* event) {
    if (event == nullptr) {
        return;
    }
    const unsigned int id = TraceId(event);
    try {
        if (event->Set()) {
            EM_TRACE(5, TASK_TAG "External event object 0x%X set!", id);
        } else {
            EM_TRACE(1, TASK_TAG "ERROR setting external event object 0x%X!", id);
        }
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1, "\n" TASK_TAG "## EXCEPTION setting external event object 0x%X!", id);
    }
}
