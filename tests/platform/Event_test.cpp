#include "platform/Event.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Trace.h"
#include "support/TraceCapture.h"

namespace {

/// Threads that wait for one event and report their results.
class Waiters {
public:
    Waiters(const CEvent& event, int count) {
        const CTraceCapture trace;
        for (int i = 0; i < count; ++i) {
            threads_.emplace_back([&] {
                const unsigned int result = event.Wait(20000, true);
                (result == CEvent::kSignalled ? released : others)++;
            });
        }
        // The print comes before the mutex is locked; the deadline is printed under it.
        EXPECT_TRUE(Eventually([&] { return trace.Count("prepare time for waiting") == count; }));
        static_cast<void>(event.IsSet());  // the last one holds the mutex until it waits
    }
    ~Waiters() {
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

    static bool Eventually(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
        return condition();
    }

    std::atomic<int> released{0};
    std::atomic<int> others{0};

private:
    std::vector<std::thread> threads_;
};

}  // namespace

TEST(Event, OneSetOrPulseReleasesOneWaiterOrAll) {
    enum Action { kSet, kPulse, kClose };
    const struct {
        bool manual;
        Action action;
        int released;
        bool signalledAfter;
    } cases[] = {
        {false, kSet, 1, false},  {true, kSet, 3, true},    {false, kPulse, 1, false},
        {true, kPulse, 3, false}, {false, kClose, 3, true}, {true, kClose, 3, true},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(::testing::Message() << "manual " << row.manual << " action " << row.action);
        CEvent event(false, row.manual);
        const CEvent other(event);  // stays open when the first is closed
        Waiters waiters(event, 3);
        EXPECT_TRUE(row.action == kSet ? event.Set() : row.action == kPulse ? event.Pulse() : event.Close());
        EXPECT_TRUE(Waiters::Eventually([&] { return waiters.released == row.released; }));
        EXPECT_EQ(other.IsSet(), row.signalledAfter);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // time for one too many to come out
        EXPECT_EQ(waiters.released, row.released);
        EXPECT_EQ(waiters.others, 0);
        event.Close();
    }
}

TEST(Event, AutomaticResetIsConsumedByTheWaitAndManualResetIsNot) {
    const CEvent automatic(true, false);
    EXPECT_EQ(automatic.Wait(0), CEvent::kSignalled);
    EXPECT_EQ(automatic.Wait(0), CEvent::kTimeout);
    automatic.Pulse();  // nobody waits: it is lost
    EXPECT_EQ(automatic.Wait(1), CEvent::kTimeout);

    const CEvent manual(true, true);
    EXPECT_EQ(manual.Wait(CEvent::kForever), CEvent::kSignalled);
    EXPECT_TRUE(manual.IsSet());
    EXPECT_TRUE(manual.Reset());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(manual.Wait(1050), CEvent::kTimeout);  // carries a second out of the nanoseconds
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1050));
}

TEST(Event, ClosedHandleRefusesUntilItIsCreatedAgain) {
    CEvent event(false, false);
    ASSERT_TRUE(event.Close());
    EXPECT_FALSE(event.IsOpen());
    EXPECT_FALSE(event.Close() || event.Set() || event.Pulse() || event.Reset() || event.IsSet());
    EXPECT_EQ(event.Wait(0), CEvent::kFailed);
    EXPECT_TRUE(event.Create(true, true));
    EXPECT_EQ(event.Wait(0), CEvent::kSignalled);
    EXPECT_TRUE(event.IsSet());
}

TEST(Event, HandlesOfOneNameShareOneEventUntilTheLastGoes) {
    const CTraceCapture trace(4);
    auto first = std::make_unique<CEvent>(false, true, "beta");
    const CEvent neighbours[] = {{true, true, "alpha"}, {true, true, "gamma"}, {true, true}, {true, true, ""}};
    {
        const CEvent second(true, false, "beta");
        EXPECT_TRUE(trace.Has("<beta> incremented (IsSignaled=0)\n"));
        EXPECT_TRUE(trace.Has("WARNING: manual setting mismatch for event "));
        CEvent copy(neighbours[0]);
        copy = second;
        const CEvent& alias = copy;
        copy = alias;
        first.reset();
        EXPECT_FALSE(second.IsSet());
        copy.Set();
        EXPECT_EQ(second.Wait(0), CEvent::kSignalled);
        EXPECT_TRUE(second.IsSet());  // the manual setting of the first stays
        EXPECT_FALSE(trace.Has("deleting event"));
    }
    EXPECT_EQ(trace.Count("deleting event"), 1);
    const CEvent fresh(false, false, "beta");
    EXPECT_FALSE(fresh.IsSet());
    EXPECT_EQ(trace.Count("<anon> (IsSignaled=1)\n"), 2);
}

TEST(Event, WaiterMayDestroyItAsSoonAsItIsReleased) {
    for (int i = 0; i < 300; ++i) {
        auto event = std::make_unique<CEvent>(false, true);
        std::thread setter([handle = event.get()] { handle->Set(); });
        EXPECT_EQ(event->Wait(CEvent::kForever), CEvent::kSignalled);
        event.reset();
        setter.join();
    }
}

TEST(Event, TracesEveryStep) {
    const CTraceCapture trace;
    CEvent event(false, true, "step");
    event.Wait(0, true);
    event.Set();
    event.Wait(CEvent::kForever, true);
    event.Reset();
    std::string text = trace.All();
    const auto begin = text.find("event ") + 6;
    const std::string id = text.substr(begin, text.find(' ', begin) - begin);
    for (auto at = text.find(id); at != std::string::npos; at = text.find(id)) {
        text.replace(at, id.size(), "@");
    }
    const auto clock = text.find(" (ts_beg");
    text.erase(clock, text.find('\n', clock) - clock);
    EXPECT_EQ(text,
              "creating event @ <step> (IsSignaled=0)\n"
              "\nwaiting 0ms on event @prepare time for waiting on event @ <step>\n"
              "TIMEOUT(102,110) on event @ <step> (IsSignaled=0)\n"
              "Set event @ <step> IsSignaled=0 --> IsSignaled=1\n"
              "\nwaiting forever on event @"
              "event @ <step> (IsManual=1) has been already signaled --> New state: IsSignaled=1\n"
              "SIGNAL(0,0) on event @ <step> (IsSignaled=1)\n"
              "Reset event @ <step>: IsSignaled=1 --> IsSignaled=0\n");
}
