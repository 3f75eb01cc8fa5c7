#include "platform/Thread.h"

#include <csignal>
#include <linux/capability.h>
#include <sched.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/CriticalSection.h"
#include "platform/Event.h"
#include "support/TraceCapture.h"

namespace {

/// What a started thread finds out about itself, and the events that lead it.
struct Visit {
    CEvent started{false, true};
    CEvent leave{false, true};
    CEvent left{false, true};
    char name[16] = {};
    int policy = -1;
    bool signalsBlocked = false;
    bool throwing = false;
};

void* Visitor(void* argument) {
    auto& visit = *static_cast<Visit*>(argument);
    struct Leaving {
        Visit& visit;
        ~Leaving() { visit.left.Set(); }  // also when the thread is cancelled
    } const leaving{visit};
    sigset_t blocked;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    visit.signalsBlocked = sigismember(&blocked, SIGTERM) == 1;
    visit.policy = ::sched_getscheduler(0);
    ::prctl(PR_GET_NAME, visit.name);
    visit.started.Set();
    visit.leave.Wait(CEvent::kForever);
    if (visit.throwing) {
        throw std::runtime_error("out of the body");
    }
    return nullptr;
}

bool StartVisit(CThread& thread, Visit& visit, unsigned long priority = 0, bool waitable = true) {
    return thread.Start(&Visitor, &visit, priority, false, 0, 0, waitable);
}

}  // namespace

TEST(Thread, JoinsAWaitableThreadInsteadOfTimingOutOrCancelling) {
    for (const bool kill : {false, true}) {
        const CTraceCapture trace;
        Visit visit;
        CThread thread;
        thread.SetThreadName("EM_ALERT", "_TaskHandler");
        EXPECT_TRUE(
            trace.Has("CThread::SetThreadName: ThreadId = 0x00000000, DebugName = EM_ALERT, "
                      "Qualifier = (_TaskHandler)\n"));
        ASSERT_TRUE(StartVisit(thread, visit));
        EXPECT_TRUE(
            trace.Has("\nCThread::Start: Start a thread, Prio=0, Suspend=0, StackSize=0x00000000, Waitable=1, "
                      "KillAliveThread=0"));
        visit.started.Wait(CEvent::kForever);
        EXPECT_STREQ(visit.name, "EM_ALERT_TaskHa");
        EXPECT_TRUE(visit.signalsBlocked);
        std::thread opener([&] {
            ::usleep(30000);
            visit.leave.Set();
        });
        EXPECT_TRUE(kill ? thread.Kill(1) : thread.WaitForTermination(1));
        EXPECT_TRUE(visit.left.IsSet() && visit.leave.IsSet());
        EXPECT_TRUE(trace.Has(kill ? "\nCThread::Kill: a joinable Thread = 0x" : "termination with timeout"));
        EXPECT_FALSE(thread.Exists());
        EXPECT_TRUE(thread.WaitForTermination(1));
        EXPECT_FALSE(thread.Kill(1));
        EXPECT_TRUE(trace.Has("\nCThread::Kill: Thread = 0x000000000 doesn't exist !"));
        opener.join();
    }
}

TEST(Thread, CancelsADetachedThreadOnlyWhileItRuns) {
    for (const bool ended : {false, true}) {
        const CTraceCapture trace;
        Visit visit;
        CThread thread;
        ASSERT_TRUE(StartVisit(thread, visit, 0, false));
        visit.started.Wait(CEvent::kForever);
        EXPECT_FALSE(thread.WaitForTermination(CEvent::kForever));
        if (ended) {
            visit.leave.Set();
            visit.left.Wait(CEvent::kForever);
            ::usleep(20000);  // the thread itself goes a moment later
        }
        EXPECT_TRUE(thread.Kill(0));
        EXPECT_EQ(visit.left.Wait(10000), CEvent::kSignalled);
        EXPECT_EQ(trace.Has(" cancel invoked"), !ended);
        EXPECT_FALSE(thread.Exists());
        EXPECT_EQ(visit.leave.Wait(0), ended ? CEvent::kSignalled : CEvent::kTimeout);  // its mutex was given back
    }
}

TEST(Thread, SecondStartAndDestructionWaitForTheThreadBefore) {
    const CTraceCapture trace;
    Visit first;
    Visit second;
    first.leave.Set();
    second.leave.Set();
    second.throwing = true;
    {
        CThread thread;
        EXPECT_TRUE(StartVisit(thread, first));
        EXPECT_TRUE(StartVisit(thread, second));
        EXPECT_TRUE(first.left.IsSet());
    }
    EXPECT_TRUE(second.left.IsSet());
    EXPECT_TRUE(trace.Has("\nCThread::Run: ## EXCEPTION ended the Thread = 0x"));
}

TEST(Thread, RunsWithInheritedSchedulingWhereRealTimeIsRefused) {
    const CTraceCapture trace;
    Visit visit;
    visit.leave.Set();
    CThread thread;
    // Capabilities belong to a thread: this one alone is a process without privilege.
    std::thread([&] {
        rlimit limit{};
        ::getrlimit(RLIMIT_RTPRIO, &limit);
        const rlimit none{0, limit.rlim_max};
        ::setrlimit(RLIMIT_RTPRIO, &none);
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        const __user_cap_data_struct data[2] = {};
        EXPECT_EQ(::syscall(SYS_capset, &header, data), 0);
        EXPECT_TRUE(StartVisit(thread, visit, 83));
        ::setrlimit(RLIMIT_RTPRIO, &limit);
    }).join();
    EXPECT_TRUE(thread.WaitForTermination(CEvent::kForever));
    EXPECT_TRUE(trace.Has("\npthread_create failed: 1"));
    EXPECT_EQ(visit.policy, SCHED_OTHER);
    EXPECT_FALSE(StartVisit(thread, visit, 100));
    EXPECT_TRUE(trace.Has("\npthread_attr_setschedparam failed: error=22 priority=100"));
}

TEST(CriticalSection, IsRecursiveAndExcludesOthers) {
    CCriticalSection section;
    int counter = 0;
    const auto count = [&] {
        for (int i = 0; i < 20000; ++i) {
            const CCriticalSectionLock outer(section);
            [&] {
                const CCriticalSectionLock inner(section);
                ++counter;
            }();
            ++counter;
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 80000);
}

TEST(CriticalSection, IgnoresTheUnlockOfAStrangerAndEverythingWhenDisabled) {
    const auto lockedByStranger = [](CCriticalSection& section) EM_NO_THREAD_SAFETY_ANALYSIS {
        CEvent entered(false, true);
        section.Lock();
        std::thread stranger([&]() EM_NO_THREAD_SAFETY_ANALYSIS {
            section.Unlock();
            section.Lock();
            entered.Set();
            section.Unlock();
        });
        const bool result = entered.Wait(100) == CEvent::kSignalled;
        section.Unlock();
        stranger.join();
        return result;
    };
    CCriticalSection enabled;
    CCriticalSection disabled(false);
    EXPECT_FALSE(lockedByStranger(enabled));
    EXPECT_TRUE(lockedByStranger(disabled));
}
