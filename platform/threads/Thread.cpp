// SPDX-License-Identifier: Apache-2.0
#include "platform/threads/Thread.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <new>
#include <sched.h>
#include <sys/prctl.h>

#include "platform/Cancellation.h"
#include "platform/Mutex.h"
#include "platform/diagnostics/Trace.h"
#include "platform/threads/Event.h"

namespace {

/// Thread ids are traced with their low 32 bits.
unsigned int Short(pthread_t thread) {
    return static_cast<unsigned int>(thread);
}

class CThreadAttributes {
public:
    CThreadAttributes() : error_(::pthread_attr_init(&attributes)) {}
    ~CThreadAttributes() {
        if (error_ == 0) {
            ::pthread_attr_destroy(&attributes);
        }
    }
    CThreadAttributes(const CThreadAttributes&) = delete;
    CThreadAttributes& operator=(const CThreadAttributes&) = delete;

    /// @return false, traced, when a step fails
    bool Prepare(unsigned long priority, bool waitable);

    pthread_attr_t attributes = {};

private:
    bool SetPriority(int priority);

    const int error_;
};

bool CThreadAttributes::Prepare(unsigned long priority, bool waitable) {
    if (error_ != 0) {
        EM_TRACE(2, "\npthread_attr_init failed: %d", error_);
        return false;
    }
    if (!waitable) {
        const int error = ::pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
        if (error != 0) {
            EM_TRACE(2, "\npthread_attr_setdetachstate failed: %d", error);
            return false;
        }
    }
    return priority == 0 || SetPriority(static_cast<int>(priority));
}

bool CThreadAttributes::SetPriority(int priority) {
    int error = ::pthread_attr_setschedpolicy(&attributes, SCHED_RR);
    if (error != 0) {
        EM_TRACE(2, "\npthread_attr_setschedpolicy failed: %d", error);
        return false;
    }
    sched_param parameters = {};
    error = ::pthread_attr_getschedparam(&attributes, &parameters);
    if (error != 0) {
        EM_TRACE(2, "\npthread_attr_getschedparam failed: %d", error);
        return false;
    }
    parameters.sched_priority = priority;
    error = ::pthread_attr_setschedparam(&attributes, &parameters);
    if (error != 0) {
        EM_TRACE(2, "\npthread_attr_setschedparam failed: error=%d priority=%d", error, priority);
        return false;
    }
    // Without it the thread inherits the creator's scheduling and the two values above are ignored.
    ::pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    return true;
}

/// Blocks all signals of the calling thread for the length of a scope; a thread created meanwhile keeps them blocked.
class CSignalBlock {
public:
    CSignalBlock() {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &previous_);
    }
    ~CSignalBlock() { ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
    CSignalBlock(const CSignalBlock&) = delete;
    CSignalBlock& operator=(const CSignalBlock&) = delete;

private:
    sigset_t previous_;
};

}  // namespace

/// What the handle and the running thread share. The id of a detached thread may be used only while `running` is
/// known to stay true.
struct CThread::Body {
    Function function = nullptr;
    void* argument = nullptr;
    char name[sizeof(name_)] = {};
    CMutex lock;
    bool running EM_GUARDED_BY(lock) = true;
};

void* CThread::Run(void* body) {
    const std::unique_ptr<std::shared_ptr<Body>> owned(static_cast<std::shared_ptr<Body>*>(body));
    const auto markEnded = [](Body* ended) {
        const CMutexLock lock(ended->lock);
        ended->running = false;
    };
    const std::unique_ptr<Body, decltype(markEnded)> running(owned->get(), markEnded);
    if (running->name[0] != '\0') {
        ::prctl(PR_SET_NAME, running->name);
    }
    try {
        return running->function(running->argument);
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1, "\nCThread::Run: ## EXCEPTION ended the Thread = 0x%08X ##", Short(::pthread_self()));
        return nullptr;
    }
}

CThread::~CThread() {
    const CCancellationPause pause;
    const pthread_t thread = thread_;
    if (thread != 0 && waitable_ && !WaitForTermination(CEvent::kForever)) {
        ::pthread_detach(thread);  // the thread destroys its own handle
    }
}

bool CThread::Start(Function function, void* argument, unsigned long priority, bool suspended, unsigned int stackSize,
                    unsigned long killAliveThread, bool waitable) {
    const int tracedPriority = static_cast<int>(priority);
    EM_TRACE(5,
             "\nCThread::Start: Start a thread, Prio=%d, Suspend=%d, StackSize=0x%08x, Waitable=%d, "
             "KillAliveThread=%d",
             tracedPriority, suspended, stackSize, waitable, static_cast<int>(killAliveThread));
    if (Exists() && !Kill(CEvent::kForever)) {
        return false;
    }
    waitable_ = waitable;
    CThreadAttributes attributes;
    if (!attributes.Prepare(priority, waitable)) {
        return false;
    }
    try {
        body_ = std::make_shared<Body>();
    } catch (const std::bad_alloc&) {
        EM_TRACE(2, "\npthread_create failed: %d", ENOMEM);
        return false;
    }
    body_->function = function;
    body_->argument = argument;
    std::snprintf(body_->name, sizeof(body_->name), "%s", name_);
    if (Create(attributes.attributes, priority != 0) != 0) {
        return false;
    }
    EM_TRACE(2, "\nCThread::Start: thread=0x%08X created, Prio=%d, Waitable=%d, StackSize=0x%x", Short(thread_),
             tracedPriority, waitable, stackSize);
    ::sched_yield();
    return true;
}

int CThread::Create(pthread_attr_t& attributes, bool withPriority) {
    std::unique_ptr<std::shared_ptr<Body>> share(new (std::nothrow) std::shared_ptr<Body>(body_));
    pthread_t thread{};
    int error = ENOMEM;
    if (share != nullptr) {
        const CSignalBlock block;
        error = ::pthread_create(&thread, &attributes, &Run, share.get());
        if (error == EPERM && withPriority) {
            EM_TRACE(2, "\npthread_create failed: %d", error);
            ::pthread_attr_setinheritsched(&attributes, PTHREAD_INHERIT_SCHED);
            error = ::pthread_create(&thread, &attributes, &Run, share.get());
        }
    }
    if (error != 0) {
        EM_TRACE(2, "\npthread_create failed: %d", error);
        return error;
    }
    static_cast<void>(share.release());  // the thread's
    thread_ = thread;
    return 0;
}

bool CThread::Join(pthread_t thread, void*& status, int& error) {
    error = ::pthread_join(thread, &status);
    if (error == 0) {
        thread_ = 0;
    }
    return error == 0;
}

bool CThread::WaitForTermination(unsigned int timeoutMs) {
    const pthread_t thread = thread_;
    if (thread == 0) {
        EM_TRACE(1, "\nCThread::WaitForTermination: Thread = 0x0%08X doesn't exist !", 0U);
        return true;
    }
    if (timeoutMs != CEvent::kForever) {
        EM_TRACE(2, "\nCThread::WaitForTermination: WARNING: can't wait for Thread = 0x%08X termination with timeout",
                 Short(thread));
    }
    if (!waitable_) {
        EM_TRACE(2, "\nCThread::WaitForTermination: WARNING: Can't wait for detached thread 0x%08X", Short(thread));
        return false;
    }
    void* status = nullptr;
    int error{};
    if (!Join(thread, status, error)) {
        EM_TRACE(1, "\nCThread::WaitForTermination: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x",
                 Short(thread), static_cast<unsigned int>(error));
        return false;
    }
    EM_TRACE(2, "\nCThread::WaitForTermination: a joinable Thread = 0x%08X has terminated, pstat=%p", Short(thread),
             status);
    return true;
}

bool CThread::Kill(unsigned int /*timeoutMs*/) {
    const pthread_t thread = thread_;
    EM_TRACE(1, "\nCThread::Kill: Try to kill the Thread = 0x%08X", Short(thread));
    if (thread == 0) {
        EM_TRACE(1, "\nCThread::Kill: Thread = 0x0%08X doesn't exist !", 0U);
        return false;
    }
    if (!waitable_) {
        return Cancel(thread);
    }
    EM_TRACE(2, "\nCThread::Kill: Try to join a joinable Thread = 0x%08X", Short(thread));
    void* status = nullptr;
    int error{};
    if (!Join(thread, status, error)) {
        EM_TRACE(1, "\nCThread::Kill: ERROR ! ThreadJoin failed, Thread = 0x%08X, Err = 0x%08x", Short(thread),
                 static_cast<unsigned int>(error));
        return false;
    }
    EM_TRACE(2, "\nCThread::Kill: a joinable Thread = 0x%08X has terminated, pstat=%p", Short(thread), status);
    return true;
}

bool CThread::Cancel(pthread_t thread) {
    EM_TRACE(2, "\nCThread::Kill: Try to kill a non-joinable Thread = 0x0%08X", Short(thread));
    const CMutexLock lock(body_->lock);
    if (body_->running) {
        EM_TRACE(2, "\nCThread::Kill: Killing a non-joinable thread 0x%08X", Short(thread));
        const int error = ::pthread_cancel(thread);
        if (error != 0) {
            EM_TRACE(1, "\nCThread::Kill: unable to cancel a non-joinable thread 0x%08X (err = 0x%08x)", Short(thread),
                     static_cast<unsigned int>(error));
            return false;
        }
        EM_TRACE(2, "\nCThread::Kill: a non-joinable thread 0x%08X cancel invoked", Short(thread));
    }
    thread_ = 0;
    return true;
}

void CThread::SetThreadName(const char* debugName, const char* qualifier) {
    EM_TRACE(1, "CThread::SetThreadName: ThreadId = 0x%08X, DebugName = %s, Qualifier = (%s)\n", Short(thread_),
             debugName, qualifier);
    std::snprintf(name_, sizeof(name_), "%s%s", debugName, qualifier);
}
