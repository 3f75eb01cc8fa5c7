// SPDX-License-Identifier: Apache-2.0
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
    EM_TRACE(4, "\nCTaskSerializer     : Enable all Tasks");
    for (unsigned int i = 0; i < levels; ++i) {
        levels_[i].accepting = true;
    }
}

bool CTaskSerializerBase::StartWorker(CThread::Function entry, void* argument) {
    const CMutexLock lock(workerLock_);
    return Start(entry, argument);
}

bool CTaskSerializerBase::StartMissingWorker(CThread::Function entry, void* argument) {
    if (!isWorkerMissing_) {
        return true;
    }
    const CMutexLock lock(workerLock_);
    return !isWorkerMissing_ || Start(entry, argument);
}

bool CTaskSerializerBase::Start(CThread::Function entry, void* argument) {
    EM_TRACE(4, "\nCTaskSerializer     : StartSerialization!");
    if (worker_.Exists()) {
        return true;
    }
    isWorkerMissing_ = !PrepareWorker() || !worker_.Start(entry, argument, kWorkerPriority, false,
                                                          static_cast<unsigned int>(stackSize_), 0, true);
    std::this_thread::sleep_for(kThreadSwitchTime);
    if (isWorkerMissing_) {
        EM_TRACE(1, "\nCTaskSerializer     : ERROR! The worker thread could not be started!");
    }
    return !isWorkerMissing_;
}

/// @return false without an event: the worker could not wait
bool CTaskSerializerBase::PrepareWorker() {
    // A task that was queued before stays there until the next one wakes the worker; its callers know that.
    if (!wakeEvent_.Reset()) {
        return false;
    }
    terminate_ = false;
    worker_.SetThreadName(traceObjects.debugClient.ModuleName(), "_TaskHandler");
    return true;
}

bool CTaskSerializerBase::TerminateSerialization() {
    const CMutexLock workerLock(workerLock_);
    isWorkerMissing_ = false;  // nobody starts it any more
    EM_TRACE(4, "\nCTaskSerializer     : TerminateSerialization!");
    bool ended = true;
    if (worker_.Exists()) {
        EM_TRACE(4, "\nCTaskSerializer     : Disable all Tasks");
        for (unsigned int i = 0; i < numberOfLevels_; ++i) {
            levels_[i].accepting = false;
        }
        {
            const CCriticalSectionLock lock(lock_);
            for (unsigned int i = 0; i < numberOfLevels_; ++i) {
                levels_[i].queue->Clear();
            }
            EM_TRACE(4, "\nCTaskSerializer     : All pending tasks removed from queues!");
            // Under the lock, as the worker resets the event there and would else undo this.
            terminate_ = true;
            wakeEvent_.Set();
        }
        std::this_thread::sleep_for(kThreadSwitchTime);
        ended = worker_.WaitForTermination(kTerminationTimeout);
        worker_.Kill(kTerminationTimeout);
    }
    EM_TRACE(5, "\nCTaskSerializer     :   terminated");
    return ended;
}

bool CTaskSerializerBase::Accepts(_TaskPriority level) const {
    const bool accepts = IsLevel(level) && At(level).accepting;
    if (!accepts) {
        EM_TRACE(4, "\nCTaskSerializer     : Manager locked for Tasks at level %d. Task ignored!", level);
    }
    return accepts;
}

CTaskSerializerBase::Insertion CTaskSerializerBase::InsertRecord(void* record, _TaskPriority level) {
    const CCriticalSectionLock lock(lock_);
    if (!Accepts(level)) {  // a termination came in between
        return Insertion::Refused;
    }
    if (!At(level).queue->Push(record)) {
        EM_TRACE(1, "\nCTaskSerializer     : ## ERROR! Task queue for priority %d is full", level);
        return Insertion::Full;
    }
    EM_TRACE(5, "\nCTaskSerializer     : Task with priority %d inserted into task queue!", level);
    wakeEvent_.Set();
    return Insertion::Done;
}

bool CTaskSerializerBase::WaitForTask() {
    EM_TRACE(4, "\nCTaskSerializer     : Waiting on task queue for next task ...");
    wakeEvent_.Wait(CEvent::kForever);
    EM_TRACE(4, "\nCTaskSerializer     : Wakeup from (any) task queue!");
    if (terminate_) {
        return false;
    }
    EM_TRACE(4, "\nCTaskSerializer     : Checking Task queue for Task records ..");
    return true;
}

void* CTaskSerializerBase::TakeRecord(_TaskPriority& level) {
    const CCriticalSectionLock lock(lock_);
    for (level = static_cast<_TaskPriority>(numberOfLevels_) - 1; level >= 0; --level) {
        if (At(level).accepting) {
            if (void* record = At(level).queue->Pop(); record != nullptr) {
                return record;
            }
        }
    }
    // The event stays set while there is work, so that the worker does not sleep between tasks.
    if (!terminate_) {
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
            EM_TRACE(5, "\nCTaskSerializer     : External event object 0x%X set!", id);
        } else {
            EM_TRACE(1, "\nCTaskSerializer     : ERROR setting external event object 0x%X!", id);
        }
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1, "\n\nCTaskSerializer     : ## EXCEPTION setting external event object 0x%X!", id);
    }
}
