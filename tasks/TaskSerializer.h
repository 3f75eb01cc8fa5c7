// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>

#include "tasks/TaskSerializerBase.h"

/// Turns messages that arrive on any thread into tasks that one worker thread executes strictly one after another,
/// those of a higher level first. The class that has the work to do derives from it.
///
/// InsertTask may be called on any thread, also by a task. A start and a termination wait for each other; a task does
/// neither.
///
/// The derived class's destructor calls TerminateSerialization first of all: when the destructor here does it, a task
/// that is picked up meanwhile no longer finds the derived class's OnTaskExecution.
///
/// @tparam Message  what a task carries; its copy is deep and shares nothing with the original
template <class Message>
class CTaskSerializer : public CTaskSerializerBase {
public:
    using CTaskSerializerBase::_TaskPriority;

    /// All levels accept tasks at once; before StartSerialization they are only queued.
    /// @param levels  number of levels, at least 1
    /// @param queueCapacity  bytes of each level's queue: 8 for each task and 8 more
    CTaskSerializer(unsigned int levels, std::uint64_t queueCapacity) : CTaskSerializerBase(levels, queueCapacity) {}
    CTaskSerializer(const CTaskSerializer&) = delete;
    CTaskSerializer& operator=(const CTaskSerializer&) = delete;

    /// Releases the tasks that were queued when serialization was never started.
    virtual ~CTaskSerializer() {
        TerminateSerialization();
        ReleasePendingTasks();
        EM_TRACE(4, "\n\nCTaskSerializer     : Class destroyed!");
    }

    /// Queues a copy of `message`. Lets std::bad_alloc out of the copy, with the queue unchanged. When the worker could
    /// not be started at its time, the start is tried again first, which takes at least 100 ms.
    /// @param done  set when the task has run (and may be destroyed at once then); null when nobody waits
    /// @return false, with nothing queued, when there is no such level, the queue is full, serialization was
    ///         terminated, or the worker still cannot be started
    bool InsertTask(Message& message, _TaskPriority level, CEvent* done);

    /// Starts the worker, which takes at least 100 ms. Tasks that were queued before wait for the next one.
    /// @return false when there is no worker thread, which each InsertTask then tries again; true when it ran already
    bool StartSerialization() { return StartWorker(&Thread_RunTaskHandler, this); }

protected:
    // On the worker. Exceptions are traced, and the worker carries on.

    virtual void OnTaskExecution(Message& message, _TaskPriority level) = 0;
    /// The last task of the level has run. Called with the queues locked.
    virtual void OnTaskQueueEmpty(_TaskPriority /*level*/) {}
    /// A message was refused because the queue is full. On the thread that inserts it.
    virtual void OnTaskQueueNodeOverrun(Message& /*message*/, _TaskPriority /*level*/) {}
    virtual void OnSerializationStarted() {}
    virtual void OnSerializationStopped() {}

private:
    struct Record {
        // NOLINTNEXTLINE(modernize-pass-by-value): a message may move no cheaper than it copies
        Record(const CEvent* event, const Message& original) : done(event), message(original) {}

        const CEvent* const done;
        Message message;
    };

    static void* Thread_RunTaskHandler(void* serializer);
    void TaskHandler();
    void RunTask(Record& record, _TaskPriority level);
    void ReleasePendingTasks();

    std::unique_ptr<Record> TakeTask(_TaskPriority& level) {
        return std::unique_ptr<Record>(static_cast<Record*>(TakeRecord(level)));
    }
};

template <class Message>
bool CTaskSerializer<Message>::InsertTask(Message& message, _TaskPriority level, CEvent* done) {
    EM_TRACE(4, "\nCTaskSerializer     : Task at level %d raised", level);
    if (!Accepts(level) || !StartMissingWorker(&Thread_RunTaskHandler, this)) {
        return false;
    }
    auto record = std::make_unique<Record>(done, message);
    const Insertion result = InsertRecord(record.get(), level);
    if (result == Insertion::Done) {
        static_cast<void>(record.release());  // the queue's, and perhaps executed and gone already
        return true;
    }
    if (result == Insertion::Full) {
        Guarded("OnTaskQueueNodeOverrun", [&] { OnTaskQueueNodeOverrun(message, level); });
    }
    return false;
}

template <class Message>
void* CTaskSerializer<Message>::Thread_RunTaskHandler(void* serializer) {
    static_cast<CTaskSerializer*>(serializer)->TaskHandler();
    EM_TRACE(1, "THREAD_RETURN: ## INFO: Thread = 0x%08X exited, Return = 0x%08x##\n",
             static_cast<unsigned int>(::pthread_self()), 0U);
    return nullptr;
}

template <class Message>
void CTaskSerializer<Message>::TaskHandler() {
    EM_TRACE(4, "\nCTaskSerializer     : START THREAD TaskHandler()!");
    Guarded("OnSerializationStarted", [&] { OnSerializationStarted(); });
    while (WaitForTask()) {
        _TaskPriority level{};
        std::unique_ptr<Record> record = TakeTask(level);
        if (record == nullptr) {
            continue;
        }
        RunTask(*record, level);
        record.reset();
        IfEmpty(level, [&] { Guarded("OnTaskQueueEmpty", [&] { OnTaskQueueEmpty(level); }); });
        if (IsTerminating()) {
            break;
        }
    }
    Guarded("OnSerializationStopped", [&] { OnSerializationStopped(); });
    EM_TRACE(4, "\nCTaskSerializer     : EXIT THREAD TaskHandler()!");
}

template <class Message>
void CTaskSerializer<Message>::RunTask(Record& record, _TaskPriority level) {
    EM_TRACE(5, "\nCTaskSerializer     : Process Task (Record 0x%X) at level %d", TraceId(&record), level);
    try {
        OnTaskExecution(record.message, level);
        EM_TRACE(5, "\nCTaskSerializer     : Task (Record 0x%X) at level %d completed", TraceId(&record), level);
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1, "\n\nCTaskSerializer     : ## EXCEPTION in OnTaskExecution()! ##");
    }
    SetExternalEvent(record.done);
}

template <class Message>
void CTaskSerializer<Message>::ReleasePendingTasks() {
    _TaskPriority level{};
    while (TakeTask(level) != nullptr) {
    }
}
