#include "platform/Event.h"

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/TraceCapture.h"

using namespace std::chrono_literals;

TEST(Event, OneSetOrPulseReleasesOneWaiterOrAll) {
    using Operation = bool (*)(CEvent&);
    const Operation set = [](CEvent& event) { return event.Set(); };
    const Operation pulse = [](CEvent& event) { return event.Pulse(); };
    const Operation close = [](CEvent& event) { return event.Close(); };
    const Operation setAndReset = [](CEvent& event) { return event.Set() && event.Reset(); };
    const Operation setTwice = [](CEvent& event) { return event.Set() && event.Set(); };
    const Operation setOften = [](CEvent& event) { return event.Set() && event.Set() && event.Set() && event.Set(); };
    const Operation setAndPulse = [](CEvent& event) { return event.Set() && event.Pulse(); };
    const struct {
        Operation operation;
        int released;
        bool manual;
        bool signalledAfter;
    } cases[] = {
        {set, 1, false, false},         {set, 3, true, true},           {pulse, 1, false, false},
        {pulse, 3, true, false},        {close, 3, false, true},        {close, 3, true, true},
        {setAndReset, 1, false, false}, {setAndReset, 3, true, false},  {setTwice, 2, false, false},
        {setOften, 3, false, true},     {setAndPulse, 2, false, false}, {setAndPulse, 3, true, false},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(&row - cases);
        const CTraceCapture trace;
        CEvent event(false, row.manual);
        const CEvent other(event);  // stays open when the first is closed
        std::vector<std::thread> waiters(3);
        for (std::thread& waiter : waiters) {
            waiter = std::thread([&] { EXPECT_EQ(event.Wait(20000), CEvent::kSignalled); });
        }
        while (trace.Count("prepare time for waiting") < 3) {  // printed under the event's mutex
            std::this_thread::yield();
        }
        EXPECT_TRUE(row.operation(event));
        while (trace.Count("SIGNAL(0,0) on event") < row.released) {
            std::this_thread::yield();
        }
        EXPECT_EQ(other.IsSet(), row.signalledAfter);
        std::this_thread::sleep_for(20ms);  // time for one too many to come out
        EXPECT_EQ(trace.Count("SIGNAL(0,0) on event"), row.released);
        event.Close();
        for (std::thread& waiter : waiters) {
            waiter.join();
        }
    }
}

TEST(Event, ResetKindDecidesWhetherAWaitConsumesTheSignal) {
    CEvent event(true, false);
    EXPECT_EQ(event.Wait(0), CEvent::kSignalled);
    EXPECT_EQ(event.Wait(0), CEvent::kTimeout);
    event.Pulse();  // nobody waits: it is lost
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(event.Wait(1050), CEvent::kTimeout);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1050ms);

    EXPECT_TRUE(event.Close());
    EXPECT_FALSE(event.IsOpen() || event.Close() || event.Set() || event.Pulse() || event.Reset() || event.IsSet());
    EXPECT_EQ(event.Wait(0), CEvent::kFailed);
    EXPECT_TRUE(event.Create(true, true));
    EXPECT_EQ(event.Wait(CEvent::kForever), CEvent::kSignalled);
    EXPECT_TRUE(event.IsSet());
    EXPECT_TRUE(event.Reset() && !event.IsSet());
}

TEST(Event, HandlesOfOneNameShareOneEventUntilTheLastGoes) {
    const CTraceCapture trace(4);
    auto first = std::make_unique<CEvent>(false, true, "beta");
    const CEvent neighbours[] = {{true, true, "alpha"}, {true, true, "gamma"}, {true, true}};
    {
        const CEvent second(true, false, "beta");
        EXPECT_TRUE(trace.Has("WARNING: manual setting mismatch for event "));
        CEvent copy(neighbours[0]);
        copy = second;
        copy = *&copy;
        first.reset();
        copy.Set();
        EXPECT_EQ(second.Wait(0), CEvent::kSignalled);
        EXPECT_TRUE(second.IsSet());  // the manual setting of the first stays
        EXPECT_FALSE(trace.Has("deleting event"));
    }
    EXPECT_EQ(trace.Count("deleting event"), 1);
    EXPECT_FALSE(CEvent(false, false, "beta").IsSet());
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
