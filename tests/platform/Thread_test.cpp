// SPDX-License-Identifier: Apache-2.0
#include "platform/threads/Thread.h"

#include <sys/prctl.h>

#include "Platform.h"
#include "platform/Cancellation.h"
#include "platform/host/HostIpAddress.h"
#include "platform/threads/CriticalSection.h"
#include "platform/threads/Event.h"

using Attributes = pthread_attr_t;

namespace {

std::string created;  // what threads were asked for

const Attributes* Note(const Attributes* attributes) {
    int policy = 0;
    int inherited = 0;
    sched_param values{};
    if (attributes != nullptr && ::pthread_attr_getschedpolicy(attributes, &policy) == 0 &&
        ::pthread_attr_getinheritsched(attributes, &inherited) == 0 &&
        ::pthread_attr_getschedparam(attributes, &values) == 0) {
        created += inherited == PTHREAD_INHERIT_SCHED ? "inherited;" : policy == SCHED_RR ? "RR" : "other";
        created += inherited == PTHREAD_INHERIT_SCHED ? "" : std::to_string(values.sched_priority) + ";";
    }
    return attributes;
}

/// Runs a body on a thread; without one, the thread stays until it may leave.
struct Runner {
    std::function<void()> body = [this] { Poll(leave); };
    std::atomic<bool> leave{false};
    std::atomic<bool> left{false};
    std::atomic<pid_t> id{0};
    CThread thread{};

    ~Runner() {
        failing = {};
        leave = true;
    }
    bool Start(bool waitable, unsigned long priority = 0) {
        const auto run = [](void* self) -> void* {
            const auto setLeft = [](Runner* runner) { runner->left = true; };  // also when the thread is cancelled
            const std::unique_ptr<Runner, decltype(setLeft)> leaving(static_cast<Runner*>(self));
            leaving->id = ::gettid();
            leaving->body();
            return nullptr;
        };
        return thread.Start(run, this, priority, true, 0x1234, 5, waitable);
    }
    static bool Poll(const std::atomic<bool>& flag) {
        for (int i = 0; i < 20000 && !flag; ++i) {
            {
                // The thread sanitizer takes a thread that was cancelled in a sleep for asleep, and misses its locks.
                const CCancellationPause pause;
                ::usleep(1000);
            }
            ::pthread_testcancel();
        }
        return flag;
    }
    bool HasLeft() const { return Poll(left); }
};

}  // namespace

EM_CAN_FAIL(pthread_attr_init, noexcept, (Attributes * a), a)
EM_CAN_FAIL(pthread_attr_setdetachstate, noexcept, (Attributes * a, int state), a, state)
EM_CAN_FAIL(pthread_attr_setschedpolicy, noexcept, (Attributes * a, int policy), a, policy)
EM_CAN_FAIL(pthread_attr_getschedparam, noexcept, (const Attributes* a, sched_param* values), a, values)
EM_CAN_FAIL(pthread_attr_setschedparam, noexcept, (Attributes * a, const sched_param* values), a, values)
EM_CAN_FAIL(pthread_create, noexcept, (pthread_t * thread, const Attributes* a, void* (*run)(void*), void* argument),
            thread, Note(a), run, argument)
EM_CAN_FAIL(pthread_join, , (pthread_t thread, void** status), thread, status)
EM_CAN_FAIL(pthread_cancel, , (pthread_t thread), thread)

/// All that the operations return and print.
TEST(Thread, OperationsFollowItsKindAndState) {
    EXPECT_EQ(TracesByLevel([] {
                  Runner runner;
                  CThread& thread = runner.thread;
                  thread.SetThreadName("EM_ALERT", "_TaskHandler");
                  EXPECT_TRUE(!thread.Exists() && !thread.Kill(1) && thread.WaitForTermination(1));
                  EXPECT_TRUE(runner.Start(true) && thread.Exists());
                  failing = {"pthread_join", EDEADLK};
                  EXPECT_FALSE(thread.WaitForTermination(1) || thread.Kill(1) || runner.Start(true));
                  failing = {};
                  {
                      const std::jthread opener([&] { runner.leave = ::usleep(30000) == 0; });
                      EXPECT_TRUE(thread.WaitForTermination(1) && runner.left && !thread.Exists());
                  }
                  EXPECT_TRUE(runner.Start(true) && runner.Start(true) && thread.Kill(1) && !thread.Exists());
                  runner.leave = runner.left = false;
                  EXPECT_TRUE(runner.Start(false) && !thread.WaitForTermination(CEvent::kForever));
                  failing = {"pthread_cancel", ESRCH};
                  EXPECT_TRUE(!thread.Kill(1) && thread.Exists());
                  failing = {};
                  EXPECT_TRUE(thread.Kill(1) && !thread.Exists() && runner.HasLeft());
                  runner.leave = true;
                  runner.left = false;
                  EXPECT_TRUE(runner.Start(false) && runner.HasLeft());
                  while (::tgkill(::getpid(), runner.id, 0) == 0) {  // the thread itself goes a moment later
                      ::usleep(1000);
                  }
                  EXPECT_TRUE(thread.Kill(1));
                  EXPECT_FALSE(CThread().Exists());  // and goes without a word
              }),
              ReadFile(EM_TEST_DATA "/thread.traces"));
}

TEST(Thread, EachFailingStepIsTracedAndEndsTheStart) {
    for (const auto& row : Cases("thread.cases", "step")) {
        const CTraceCapture trace(2);
        Runner runner;
        failing = {row[1].c_str(), EAGAIN};
        EXPECT_FALSE(runner.Start(false, 7) || runner.thread.Exists());
        EXPECT_EQ(trace.All(), row[2]);
    }
    for (const int after : {0, 1}) {
        const CTraceCapture trace(2);
        Runner runner;
        failing = {"operator new", ENOMEM, 1, after};
        EXPECT_FALSE(runner.Start(false) || runner.thread.Exists());
        EXPECT_EQ(trace.All(), "\npthread_create failed: 12");
    }
    const CTraceCapture trace(2);
    Runner runner;
    failing = {"pthread_create", EPERM};  // without a priority there is nothing to do without
    EXPECT_FALSE(runner.Start(false) || runner.thread.Exists());
    EXPECT_EQ(trace.All(), "\npthread_create failed: 1");
}

TEST(Thread, StartsAsAskedOrWithInheritedSchedulingWhereRealTimeIsRefused) {
    const CTraceCapture trace(2);
    created.clear();
    sigset_t blocked;
    char name[16] = "";
    Runner runner{[&] {
        ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        ::prctl(PR_GET_NAME, name);
        throw std::runtime_error("no exception may end the process");
    }};
    runner.thread.SetThreadName("EM_ALERT", "_TaskHandler");
    failing = {"pthread_create", EPERM, 1};
    EXPECT_TRUE(runner.Start(true, 63) && runner.thread.WaitForTermination(CEvent::kForever));
    EXPECT_EQ(trace.Prints()[1], "\npthread_create failed: 1");
    EXPECT_TRUE(trace.Has("\nCThread::Run: ## EXCEPTION ended the Thread = 0x"));
    EXPECT_TRUE(sigismember(&blocked, SIGTERM) == 1 && sigismember(&blocked, SIGUSR2) == 1);
    EXPECT_STREQ(name, "EM_ALERT_TaskHa");
    EXPECT_TRUE(runner.Start(true) && runner.thread.Kill(0) && runner.Start(true, 63) && runner.thread.Kill(0));
    EXPECT_TRUE(created.starts_with("inherited;inherited;RR63;")) << created;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 0);
    std::atomic<bool> left{false};
    EXPECT_TRUE(Runner{[&left] { left = ::usleep(30000) == 0; }}.Start(true));
    EXPECT_TRUE(left);  // its handle waited
}

TEST(Thread, MayBeKilledWhateverItDoes) {
    for (int i = 0; i < 50; ++i) {
        const CTraceCapture trace;
        Runner busy{[i] {
            for (;;) {
                EM_TRACE(1, "\nround");
                if (i != 0) {  // else nothing but traces
                    const CEvent event(false, true);
                    const CUniqueFd file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
                    CHostIPAddress::GetHostIPAddress(0, CHostIPAddress::ip_v6);
                }
            }
        }};
        EXPECT_TRUE(busy.Start(false) && trace.Await("round") && busy.thread.Kill(0) && busy.HasLeft());
    }
}

TEST(Thread, LeavesASignalToOthersWhenItIsKilledBeforeItRan) {
    for (int i = 0; i < 200; ++i) {
        const CTraceCapture trace;
        const CEvent event(false, false);
        std::atomic<int> taken{0};
        Runner waiter{[&] {
            EXPECT_EQ(event.Wait(20000), CEvent::kSignalled);
            ++taken;
        }};
        EXPECT_TRUE(waiter.Start(false) && trace.Await("prepare time") && event.Set());
        EXPECT_TRUE(waiter.thread.Kill(0) && waiter.HasLeft());
        EXPECT_EQ(taken + static_cast<int>(event.IsSet()), 1);
    }
}

TEST(CriticalSection, IsRecursiveAndIgnoresTheUnlockOfAStranger) {
    CCriticalSection section;
    CCriticalSection disabled(false);
    int counter = 0;
    const auto count = [&]() EM_NO_THREAD_SAFETY_ANALYSIS {
        disabled.Lock();
        for (int i = 0; i < 2000; ++i) {
            section.Unlock();
            const CCriticalSectionLock outer(section);
            { const CCriticalSectionLock inner(section); }
            const int seen = counter;
            std::this_thread::yield();
            counter = seen + 1;
        }
    };
    std::jthread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 4000);
}
