// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <pthread.h>

/// A handle onto one thread. One owner at a time starts, joins and kills; Exists may be asked on any thread. Nothing
/// throws.
///
/// Threads start with all signals blocked, which belong to the host. An exception that leaves the thread function is
/// traced and ends the thread.
///
/// The owner sees to it that the thread ends, and waits for it, before the handle goes: the destructor joins a waitable
/// thread without limit, because the thread would else run on in freed memory or unloaded code. A thread that is not
/// waitable is nobody's any more, and has to end before the library is unloaded.
class CThread {
public:
    using Function = void* (*)(void*);

    CThread() = default;
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;
    ~CThread();

    /// Starts a thread. One that is still recorded is killed (which waits for a waitable one) first.
    /// @param priority  1 to 99: round-robin real-time scheduling, or the caller's own scheduling where the process is
    ///                  not allowed to; 0: the caller's own
    /// @param suspended, stackSize, killAliveThread  only traced
    /// @param waitable  false: nobody can wait for the end of the thread
    bool Start(Function function, void* argument, unsigned long priority, bool suspended, unsigned int stackSize,
               unsigned long killAliveThread, bool waitable);

    /// Waits for the thread's end, without limit: a time-out is warned of and not kept.
    /// @return true also when there is no thread; false for one that is not waitable, or is the calling one
    bool WaitForTermination(unsigned int timeoutMs);

    /// Joins a waitable thread, cancels another one that still runs.
    /// @param timeoutMs  not used
    /// @return false when there is no thread, or it cannot be joined or cancelled
    bool Kill(unsigned int timeoutMs);

    /// Names the threads that this handle starts from now on, for debuggers and ps.
    /// @param debugName, qualifier  the name is both, cut at 15 characters
    void SetThreadName(const char* debugName, const char* qualifier);

    /// @return whether a thread was started and not waited for since, even if it has ended meanwhile
    bool Exists() const { return thread_ != 0; }

private:
    struct Body;

    static void* Run(void* body);
    int Create(pthread_attr_t& attributes, bool withPriority);
    bool Join(pthread_t thread, void*& status, int& error);
    bool Cancel(pthread_t thread);

    std::atomic<pthread_t> thread_{0};
    bool waitable_{};
    char name_[16] = {};  // the kernel's limit, with the final NUL
    std::shared_ptr<Body> body_;
};
