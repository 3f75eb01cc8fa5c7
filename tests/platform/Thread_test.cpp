#include "platform/Thread.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <linux/capability.h>
#include <memory>
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
#include "platform/HostIpAddress.h"
#include "platform/Thread.h"
#include "platform/Trace.h"
#include "platform/UniqueFd.h"
#include "support/TraceCapture.h"

namespace {

/// A thread that finds out about itself and stays until it may leave.
struct Visit {
    CEvent started{false, true};
    CEvent leave{false, true};
    CEvent left{false, true};
    char name[16] = {};
    int policy = -1;
    bool signalsBlocked = false;

    bool Start(CThread& thread, unsigned long priority = 0, bool waitable = true) {
        return thread.Start(&Run, this, priority, false, 0, 0, waitable);
    }
    static void* Run(void* argument) {
        auto& visit = *static_cast<Visit*>(argument);
        const auto setLeft = [](const CEvent* event) { event->Set(); };  // also when the thread is cancelled
        const std::unique_ptr<CEvent, decltype(setLeft)> leaving(&visit.left);
        sigset_t blocked;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        visit.signalsBlocked = sigismember(&blocked, SIGTERM) == 1;
        visit.policy = ::sched_getscheduler(0);
        ::prctl(PR_GET_NAME, visit.name);
        visit.started.Set();
        visit.leave.Wait(CEvent::kForever);
        throw std::runtime_error("no exception may end the process");
    }
};

}  // namespace

TEST(Thread, JoinsAWaitableThreadInsteadOfTimingOutOrCancelling) {
    for (const bool kill : {false, true}) {
        const CTraceCapture trace;
        Visit visit;
        CThread thread;
        thread.SetThreadName("EM_ALERT", "_TaskHandler");
        ASSERT_TRUE(visit.Start(thread));
        visit.started.Wait(CEvent::kForever);
        EXPECT_STREQ(visit.name, "EM_ALERT_TaskHa");
        EXPECT_TRUE(visit.signalsBlocked);
        std::thread opener([&] {
            ::usleep(30000);
            visit.leave.Set();
        });
        EXPECT_TRUE(kill ? thread.Kill(1) : thread.WaitForTermination(1));
        EXPECT_TRUE(visit.left.IsSet() && visit.leave.IsSet());
        EXPECT_TRUE(trace.Has("## EXCEPTION ended the Thread = 0x"));
        EXPECT_TRUE(!thread.Exists() && !thread.Kill(1) && thread.WaitForTermination(1));
        opener.join();
    }
}

TEST(Thread, CancelsADetachedThreadOnlyWhileItRuns) {
    for (const bool ended : {false, true}) {
        const CTraceCapture trace;
        Visit visit;
        CThread thread;
        ASSERT_TRUE(visit.Start(thread, 0, false));
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
        EXPECT_TRUE(visit.leave.Set());  // the cancelled wait gave the mutex back
    }
}

/// Runs a body on a detached thread, and tells when it is left.
struct Detached {
    std::function<void()> body;
    CEvent left{false, true};
    CThread thread;

    explicit Detached(std::function<void()> work) : body(std::move(work)) {
        const auto run = [](void* self) -> void* {
            const auto setLeft = [](Detached* detached) { detached->left.Set(); };
            const std::unique_ptr<Detached, decltype(setLeft)> leaving(static_cast<Detached*>(self));
            leaving->body();
            return nullptr;
        };
        EXPECT_TRUE(thread.Start(run, this, 0, false, 0, 0, false));
    }
    void Kill() {
        EXPECT_TRUE(thread.Kill(0));
        EXPECT_EQ(left.Wait(20000), CEvent::kSignalled);
    }
};

TEST(Thread, MayBeKilledWhateverItDoes) {
    for (int i = 0; i < 50; ++i) {
        const CTraceCapture trace;
        Detached busy([] {
            for (;;) {
                EM_TRACE(1, "\nround");
                const CEvent event(false, true);
                const CUniqueFd file(::open("/dev/null", O_RDONLY));
                CHostIPAddress::GetHostIPAddress(0, CHostIPAddress::ip_v6);
            }
        });
        while (!trace.Has("round")) {
            std::this_thread::yield();
        }
        busy.Kill();
    }
}

TEST(Thread, LeavesASignalToOthersWhenItIsKilledBeforeItRan) {
    for (int i = 0; i < 300; ++i) {
        const CTraceCapture trace;
        const CEvent event(false, false);
        std::atomic<int> taken{0};
        Detached waiter([&] {
            EXPECT_EQ(event.Wait(20000), CEvent::kSignalled);
            ++taken;
        });
        while (!trace.Has("prepare time")) {
            std::this_thread::yield();
        }
        event.Set();
        waiter.Kill();
        EXPECT_EQ(taken + static_cast<int>(event.IsSet()), 1);
    }
}

TEST(Thread, RunsWithInheritedSchedulingWhereRealTimeIsRefused) {
    const CTraceCapture trace;
    Visit visit;
    visit.leave.Set();
    {
        CThread thread;
        EXPECT_FALSE(visit.Start(thread, 100));
        // Capabilities belong to a thread: this one alone is without privilege.
        std::thread([&] {
            const rlimit none{};
            ::setrlimit(RLIMIT_RTPRIO, &none);
            __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
            const __user_cap_data_struct data[2] = {};
            EXPECT_EQ(::syscall(SYS_capset, &header, data), 0);
            EXPECT_TRUE(visit.Start(thread, 83));
        }).join();
    }
    EXPECT_TRUE(visit.left.IsSet());  // the destructor waited
    EXPECT_TRUE(trace.Has("\npthread_create failed: 1"));
    EXPECT_EQ(visit.policy, SCHED_OTHER);
}

TEST(CriticalSection, IsRecursiveAndIgnoresTheUnlockOfAStranger) {
    CCriticalSection section;
    int counter = 0;
    const auto count = [&]() EM_NO_THREAD_SAFETY_ANALYSIS {
        for (int i = 0; i < 20000; ++i) {
            section.Unlock();
            const CCriticalSectionLock outer(section);
            const CCriticalSectionLock inner(section);
            ++counter;
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 40000);
}
