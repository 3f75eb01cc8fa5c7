// SPDX-License-Identifier: Apache-2.0
#include "platform/threads/Event.h"

#include "Platform.h"

namespace {

timespec deadline{};
std::function<void()> meanwhile = [] {};  // what others do during a wait that fails

}  // namespace

EM_CAN_FAIL(pthread_condattr_setclock, noexcept, (pthread_condattr_t * a, clockid_t clock), a, clock)
EM_CAN_FAIL(pthread_cond_init, noexcept, (pthread_cond_t * c, const pthread_condattr_t* a), c, a)
EM_CAN_FAIL(pthread_mutex_init, noexcept, (pthread_mutex_t * m, const pthread_mutexattr_t* a), m, a)

extern "C" int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* end) {
    static const auto real =
        reinterpret_cast<decltype(&pthread_cond_timedwait)>(::dlsym(RTLD_NEXT, "pthread_cond_timedwait"));
    deadline = *end;
    if (!Fails("pthread_cond_timedwait")) {
        return real(condition, mutex, end);
    }
    ::pthread_mutex_unlock(mutex);
    meanwhile();
    ::pthread_mutex_lock(mutex);
    return failing.error;
}

TEST(Event, ReleasesWaitersAsItsKindAndTheOperationsSay) {
    for (const auto& row : Cases("event.cases", "release")) {
        SCOPED_TRACE(row[1] + row[3]);
        const CTraceCapture trace;
        CEvent event(false, row[3] == "manual", "anew in each row");
        const CEvent other(event);  // stays open when the first is closed
        const auto wait = [&event] { EXPECT_EQ(event.Wait(20000), CEvent::kSignalled); };
        const std::jthread waiters[] = {std::jthread(wait), std::jthread(wait), std::jthread(wait)};
        EXPECT_TRUE(trace.Await("prepare time for waiting", 3));  // printed under the event's mutex
        for (const char operation : row[1]) {
            EXPECT_TRUE(operation == 'S'   ? event.Set()
                        : operation == 'R' ? event.Reset()
                        : operation == 'P' ? event.Pulse()
                        : operation == 'C' ? event.Close()
                                           : event.Create(true, false));
        }
        EXPECT_TRUE(trace.Await("SIGNAL(0,0) on event", std::stoi(row[2])));
        EXPECT_EQ(other.IsSet(), row[4] == "signalled");
        std::this_thread::sleep_for(20ms);  // time for one too many to come out
        EXPECT_EQ(trace.Count("SIGNAL(0,0) on event"), std::stoi(row[2]));
        event.Close();
    }
}

TEST(Event, EachSetReleasesWhoWaitsLongest) {
    const CTraceCapture trace;
    const CEvent event(false, false);
    std::jthread waiters[3];
    for (std::jthread& waiter : waiters) {
        waiter = std::jthread([&event] { EXPECT_EQ(event.Wait(20000), CEvent::kSignalled); });
        EXPECT_TRUE(trace.Await("prepare time for waiting", static_cast<int>(&waiter - waiters) + 1));
    }
    for (std::jthread& waiter : waiters) {
        event.Set();
        waiter.join();
    }
}

TEST(Event, WaitsUntilADeadlineOfTheMonotonicClock) {
    const CEvent event(false, false);
    failing = {"pthread_cond_timedwait", ETIMEDOUT};
    for (const unsigned int timeout : {0U, 1U, 999U, 1000U, 86399999U, 0xFFFFFFFEU}) {
        const auto before = std::chrono::steady_clock::now().time_since_epoch();
        EXPECT_EQ(event.Wait(timeout), 102U);
        const auto wanted = std::chrono::seconds(deadline.tv_sec) + std::chrono::nanoseconds(deadline.tv_nsec) -
                            std::chrono::milliseconds(timeout);
        EXPECT_TRUE(wanted >= before && wanted <= std::chrono::steady_clock::now().time_since_epoch()) << timeout;
    }
    failing = {"pthread_cond_timedwait", EINTR, 3};
    EXPECT_EQ(event.Wait(10), CEvent::kTimeout);
    failing = {"pthread_cond_timedwait", EPERM, 1};
    EXPECT_EQ(event.Wait(10), 0xFFFFFFFF);
    meanwhile = [&event] { event.Set(); };
    failing = {"pthread_cond_timedwait", ETIMEDOUT, 1};
    EXPECT_EQ(event.Wait(10), CEvent::kSignalled);  // it came with the deadline
}

/// All that the operations return and print.
TEST(Event, HandlesOfOneNameShareOneEventUntilTheLastGoes) {
    const auto scenario = [] {
        auto first = std::make_unique<CEvent>(false, true, "beta");
        const CEvent neighbours[] = {{true, true, "alpha"}, {true, true, "gamma"}, {true, true, ""}, {true, false, ""}};
        CEvent copy(neighbours[0]);
        {
            const CEvent second(true, false, "beta");
            copy = second;
            copy = *&copy;
            first.reset();
            EXPECT_FALSE(second.IsSet());
            EXPECT_TRUE(copy.Set() && second.Wait(CEvent::kForever) == 0);
            EXPECT_TRUE(second.IsSet());  // the manual setting of the first stays
        }
        EXPECT_TRUE(copy.Pulse() && !copy.IsSet() && copy.Wait(0, true) == CEvent::kTimeout);
        EXPECT_TRUE(copy.Create(true, false, "other") && copy.Wait(CEvent::kForever, true) == 0 && !copy.IsSet());
        EXPECT_TRUE(copy.Create(true, false) && copy.Create(false, true) && !copy.IsSet());
        EXPECT_TRUE(copy.Set() && copy.Reset() && !copy.IsSet());
        EXPECT_TRUE(copy.Open("", 0, false) && copy.Close());
        for (CEvent event : {copy, CEvent(copy)}) {
            EXPECT_FALSE(event.IsOpen() || event.Close() || event.Set() || event.Pulse() || event.Reset());
            EXPECT_TRUE(!event.IsSet() && event.Wait(0, true) == CEvent::kFailed);
        }
        EXPECT_TRUE(CEvent(false, false, "beta").IsSet());
        EXPECT_TRUE(copy.Create(true, true) && copy.IsOpen());
        copy = neighbours[3];
        EXPECT_FALSE(CEvent(false, false, "beta").IsSet());
        EXPECT_TRUE(copy.IsOpen() && neighbours[2].IsSet());
        EXPECT_TRUE(copy.Create(false, false) && copy.Wait(0) == CEvent::kTimeout);
    };
    EXPECT_EQ(TracesByLevel(scenario), ReadFile(EM_TEST_DATA "/event.traces"));
}

TEST(Event, WithoutPosixObjectsAHandleRefuses) {
    for (const auto& row : Cases("event.cases", "posix")) {
        failing = {row[1].c_str(), ENOMEM};
        EXPECT_EQ(TracesByLevel([] {
                      CEvent event(true, true, "e");
                      EXPECT_FALSE(event.Set() || event.Reset() || event.Pulse() || event.IsSet() || event.Close());
                      EXPECT_TRUE(event.Wait(0) == CEvent::kFailed && !event.Create(true, true) && event.IsOpen());
                  }),
                  row[2]);
    }
    failing = {};
    EXPECT_FALSE(CEvent(false, true, "e").IsSet());
}

TEST(Event, WaiterMayDestroyItAsSoonAsItIsReleased) {
    for (int i = 0; i < 300; ++i) {
        auto event = std::make_unique<CEvent>(false, true);
        const std::jthread setter([handle = event.get()] { handle->Set(); });
        EXPECT_EQ(event->Wait(CEvent::kForever), CEvent::kSignalled);
        event.reset();
    }
}
