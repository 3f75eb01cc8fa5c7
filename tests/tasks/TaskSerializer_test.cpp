// SPDX-License-Identifier: Apache-2.0
#include "tasks/TaskSerializer.h"

#include <cerrno>
#include <ctime>
#include <poll.h>
#include <regex>
#include <thread>

#include "support/DataRows.h"
#include "support/FailingCall.h"
#include "support/TraceCapture.h"

namespace {

std::function<void()> onSleep;  // once

/// Its use count tells how many messages there are.
const auto live = std::make_shared<int>();

struct Message {
    std::string text;
    std::shared_ptr<int> mark = live;
};

bool Await(const std::function<bool()>& condition, int milliseconds = 60000) {
    for (; !condition() && milliseconds > 0; --milliseconds) {
        ::poll(nullptr, 0, 1);
    }
    return condition();
}

/// Writes down what it is called for, and throws each time except for the task "fine".
class Recorder : public CTaskSerializer<Message> {
public:
    explicit Recorder(unsigned int levels = 1) : CTaskSerializer(levels, 800) {}
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    ~Recorder() override { TerminateSerialization(); }

    bool Insert(const std::string& text, _TaskPriority level = 0, CEvent* done = nullptr) {
        Message message{text};
        return InsertTask(message, level, done) && message.text == text;
    }
    std::string LogAtTheEnd() {
        EXPECT_TRUE(TerminateSerialization());
        return log_;
    }

    CEvent letGo{true, true};  // until then the worker is kept from its first task
    std::function<void()> onTask = [] {};
    std::function<void()> onEmpty;

protected:
    void OnTaskExecution(Message& message, _TaskPriority level) override {
        onTask();
        if (message.text.append(1, '@') != "fine@") {
            Write(message.text + std::to_string(level));
        }
    }
    void OnTaskQueueEmpty(_TaskPriority level) override {
        onEmpty != nullptr&& level == 0 ? onEmpty() : Write("empty" + std::to_string(level));
    }
    void OnTaskQueueNodeOverrun(Message& message, _TaskPriority level) override {
        message.text == "b" ? Write("overrun:b" + std::to_string(level)) : void();
    }
    void OnSerializationStarted() override {
        letGo.Wait(CEvent::kForever);
        Write("started");
    }
    void OnSerializationStopped() override { Write("stopped"); }

private:
    void Write(const std::string& line) {
        log_ += line + ' ';
        throw 1;
    }

    std::string log_;  // of the worker; and of a thread that inserts one task too many
};

}  // namespace

// This program's own: nobody sleeps, and threads are refused when told to.
extern "C" int nanosleep(const timespec* time, timespec* /*rest*/) {
    if (const auto hook = std::exchange(onSleep, nullptr)) {
        hook();
    }
    EM_TRACE(1, "sleep %ld", static_cast<long>(time->tv_sec * 1000000000 + time->tv_nsec));
    return 0;
}
EM_CAN_FAIL(pthread_attr_setschedparam, noexcept, (pthread_attr_t * a, const sched_param* values), a, values)
EM_CAN_FAIL(pthread_cond_init, noexcept, (pthread_cond_t * c, const pthread_condattr_t* a), c, a)

TEST(TaskSerializer, TracesItsLifeInOrderAndSleepsWhenIdle) {
    const CTraceCapture trace;
    const auto life = [&trace] {
        const bool isDetailed = traceObjects.debugClient.DebugLevel() >= 4;
        const auto count = [&](int waits, int exceptions) {
            return trace.Count("Waiting on") >= (isDetailed ? waits : 0) && trace.Count("## EXCEPTION") >= exceptions;
        };
        onSleep = [&] { EXPECT_TRUE(Await([&] { return count(1, 1); })); };
        Recorder serializer;
        ASSERT_TRUE(serializer.StartSerialization());
        CEvent done(false, true);
        EXPECT_TRUE(serializer.Insert("fine", 0, &done));
        EXPECT_TRUE(Await([&] { return done.IsSet() && count(3, 2); }));
        EXPECT_TRUE(done.Close() && serializer.Insert("a", 0, &done));
        EXPECT_TRUE(Await([&] { return count(5, 4); }));
        ASSERT_FALSE(Await([&] { return count(6, 4) && isDetailed; }, 20) || serializer.Insert("a", 1));  // asleep
        onSleep = [&] { EXPECT_TRUE(Await([&] { return trace.Has("THREAD_RETURN"); })); };
        EXPECT_TRUE(serializer.TerminateSerialization());
    };
    EXPECT_EQ(TracesByLevel(life, "TaskSerializer|THREAD_R|SetThread|Start a|Try to kill|sleep"),
              ReadFile(EM_LIFE_ROWS));
}

TEST(TaskSerializer, ServesTheHighestLevelFirstAndRefusesTheHundredthTask) {
    const CTraceCapture trace;
    Recorder serializer(3);
    EXPECT_TRUE(serializer.letGo.Reset() && serializer.StartSerialization());
    const long before = live.use_count();
    for (int i = 0; i < 99; ++i) {
        ASSERT_TRUE(serializer.Insert("a"));
    }
    EXPECT_FALSE(serializer.Insert("b") || serializer.Insert("b", 3) || serializer.Insert("b", -1));
    EXPECT_TRUE(serializer.Insert("c", 1) && serializer.Insert("d", 2) && serializer.Insert("e", 1));
    EXPECT_EQ(live.use_count(), before + 102);
    EXPECT_EQ(trace.Count("\nCTaskSerializer     : ## ERROR! Task queue for priority 0 is full"), 1);
    EXPECT_EQ(trace.Count("EXCEPTION in OnTaskQueueNodeOverrun()!"), 1);
    // The lock is held meanwhile.
    std::vector<std::jthread> others;
    serializer.onEmpty = [&] {
        EXPECT_EQ(live.use_count(), before);
        others.emplace_back([&] { serializer.Insert("late", 1); });
        others.emplace_back([&] { serializer.TerminateSerialization(); });
        EXPECT_FALSE(Await([&] { return trace.Has("All pending") || trace.Count("inserted into") != 102; }, 20));
    };
    serializer.letGo.Set();
    EXPECT_TRUE(Await([&] { return trace.Has("EXIT THREAD"); }));
    others.clear();
    EXPECT_EQ(std::regex_replace(serializer.LogAtTheEnd(), std::regex("late@1 empty1 |a@0 "), ""),
              "overrun:b0 started d@2 empty2 c@1 e@1 empty1 stopped ");
}

TEST(TaskSerializer, TerminationDropsWhatIsPendingAndStaysRefusing) {
    const CTraceCapture trace;
    const long before = live.use_count();
    {
        Recorder serializer;
        EXPECT_TRUE(serializer.TerminateSerialization());  // no worker: nothing is disabled
        EXPECT_TRUE(serializer.letGo.Reset() && serializer.StartSerialization());
        CEvent dropped(false, true);
        EXPECT_TRUE(serializer.Insert("a", 0, &dropped));
        onSleep = [&] { serializer.letGo.Set(); };
        EXPECT_TRUE(serializer.TerminateSerialization());
        EXPECT_FALSE(dropped.IsSet() || serializer.Insert("a"));
        EXPECT_TRUE(serializer.StartSerialization() && !serializer.Insert("a"));
        EXPECT_EQ(serializer.LogAtTheEnd(), "started stopped started stopped ");
        EXPECT_TRUE(Recorder().Insert("never started"));
    }
    EXPECT_EQ(live.use_count(), before + 1);  // the dropped one is lost
}

TEST(TaskSerializer, ATerminationDuringATaskEndsTheWorkerBehindIt) {
    const CTraceCapture trace;
    Recorder serializer;
    serializer.onTask = [&] { EXPECT_TRUE(trace.Await("All pending tasks removed")); };
    EXPECT_TRUE(serializer.StartSerialization() && serializer.Insert("fine") && trace.Await("Process Task"));
    EXPECT_EQ(serializer.LogAtTheEnd(), "started empty0 stopped ");
    EXPECT_EQ(trace.Count("Waiting on task queue"), 1);
}

TEST(TaskSerializer, StartThatFailedIsTriedAgainUntilTheTermination) {
    const CTraceCapture trace;
    const auto starts = [&] { return trace.Count("StartSerialization!"); };
    Recorder serializer;
    EXPECT_TRUE(serializer.Insert("early"));
    failing = {"pthread_attr_setschedparam", EINVAL};
    EXPECT_FALSE(serializer.StartSerialization() || serializer.Insert("refused"));
    EXPECT_EQ(trace.Count("\nCTaskSerializer     : ERROR! The worker thread could not be started!"), 2);
    failing = {};
    std::vector<std::jthread> others;
    const auto othersWait = [&] {
        const int before = starts();
        others.emplace_back([&] { serializer.StartSerialization(); });
        others.emplace_back([&] { serializer.Insert("other"); });
        EXPECT_FALSE(Await([&] { return starts() != before; }, 20));
    };
    onSleep = [&] {
        EXPECT_FALSE(Await([&] { return trace.Has("Process Task"); }, 20));
        othersWait();
    };
    EXPECT_TRUE(serializer.Insert("a"));
    others.clear();
    EXPECT_TRUE(Await([&] { return trace.Count("EXCEPTION in OnTaskExecution") == 3; }));
    onSleep = othersWait;
    EXPECT_TRUE(serializer.TerminateSerialization());
    others.clear();
    const std::string log = serializer.LogAtTheEnd();
    EXPECT_TRUE(log.starts_with("started early@0 ") && log.find("refused") == std::string::npos) << log;
    EXPECT_EQ(starts(), 5);
    failing = {"pthread_cond_init", EAGAIN};
    Recorder deaf;  // its worker could not be woken
    failing = {};
    EXPECT_FALSE(deaf.StartSerialization());
    EXPECT_EQ(trace.Count("\nCTaskSerializer     : ERROR! The worker thread could not be started!"), 3);
    Recorder never;
    failing = {"pthread_attr_setschedparam", EINVAL};
    EXPECT_TRUE(!never.StartSerialization() && never.TerminateSerialization());
    failing = {};
    EXPECT_TRUE(never.Insert("a") && starts() == 7);
}

TEST(TaskSerializer, ManyThreadsInsertWhileItRunsAndStops) {
    const long before = live.use_count();
    Recorder serializer(2);
    EXPECT_TRUE(serializer.StartSerialization());
    const auto insert = [&] {
        for (int turn = 0; turn < 3000; ++turn) {
            serializer.Insert("a", turn % 2);
        }
    };
    { const std::jthread one(insert), two(insert); }
    EXPECT_TRUE(Await([&] { return live.use_count() == before; }));
    const std::jthread one(insert), two(insert);
    const std::string log = serializer.LogAtTheEnd();
    EXPECT_EQ(log.find(" a@", log.find(" stopped ")), std::string::npos);
}
