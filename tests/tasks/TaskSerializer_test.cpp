#include "tasks/TaskSerializer.h"

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/TraceCapture.h"

namespace {

/// Its use count tells how many messages there are.
const auto live = std::make_shared<int>();

struct Message {
    std::string text;
    std::shared_ptr<int> mark = live;
};

/// Writes down what it is called for, and throws each time. The task "block" waits to be let go.
class Recorder : public CTaskSerializer<Message> {
public:
    explicit Recorder(unsigned int levels = 1) : CTaskSerializer(levels, 800) {}
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    ~Recorder() override { TerminateSerialization(); }

    bool Insert(const std::string& text, _TaskPriority level = 0, CEvent* done = nullptr) {
        Message message{text};
        return InsertTask(message, level, done);
    }
    /// Starts the worker and keeps it busy.
    void Occupy() {
        ASSERT_TRUE(StartSerialization());
        ASSERT_TRUE(Insert("block"));
        ASSERT_EQ(blocked.Wait(10000), CEvent::kSignalled);
    }
    /// Queues the last task, lets the worker go and waits for it.
    void Finish(const std::string& task) {
        CEvent done(false, true);
        ASSERT_TRUE(Insert(task, 0, &done));
        letGo.Set();
        ASSERT_EQ(done.Wait(10000), CEvent::kSignalled);
        EXPECT_TRUE(TerminateSerialization());
    }
    std::string Log() {
        const std::lock_guard guard(logLock_);
        return log_;
    }

    CEvent blocked{false, true};
    CEvent letGo{false, true};

protected:
    void OnTaskExecution(Message& message, _TaskPriority level) override {
        if (message.text == "block") {
            blocked.Set();
            letGo.Wait(CEvent::kForever);
        }
        message.text += "@" + std::to_string(level);
        Write(message.text);
    }
    void OnTaskQueueEmpty(_TaskPriority level) override { Write("empty@" + std::to_string(level)); }
    void OnTaskQueueNodeOverrun(Message& message, _TaskPriority /*level*/) override {
        Write("overrun:" + message.text);
    }
    void OnSerializationStarted() override { Write("started"); }
    void OnSerializationStopped() override { Write("stopped"); }

private:
    void Write(const std::string& line) {
        const std::lock_guard guard(logLock_);
        log_ += line + " ";
        throw 1;
    }

    std::mutex logLock_;
    std::string log_;
};

}  // namespace

TEST(TaskQueue, HoldsWholeSlotsOfItsCapacityButOne) {
    const std::pair<std::uint64_t, int> cases[] = {{0, 0}, {8, 0}, {9, 1}, {16, 1}, {21, 2}, {800, 99}};
    std::vector<int> records(100);
    for (const auto& [capacity, tasks] : cases) {
        CTaskQueue queue(capacity);
        int pushed = 0;
        while (queue.Push(&records[pushed % 100])) {
            ++pushed;
        }
        ASSERT_EQ(pushed, tasks) << capacity;
        for (int popped = 0; popped < 50 * tasks; ++popped, ++pushed) {  // wraps at every byte
            ASSERT_EQ(queue.Pop(), &records[popped % 100]);
            ASSERT_TRUE(queue.Push(&records[pushed % 100]));
        }
    }
}

TEST(TaskSerializer, ServesTheHighestLevelFirstAndOutlivesExceptions) {
    const CTraceCapture trace;
    Recorder serializer(3);
    serializer.Occupy();
    for (const int level : {0, 2, 1, 2}) {
        EXPECT_TRUE(serializer.Insert("a", level));
    }
    serializer.Finish("b");
    EXPECT_EQ(serializer.Log(), "started block@0 a@2 a@2 empty@2 a@1 empty@1 a@0 b@0 empty@0 stopped ");
    EXPECT_EQ(trace.Count("\n\nCTaskSerializer     : ## EXCEPTION in OnTaskExecution()! ##"), 6);
    EXPECT_EQ(trace.Count("\nCTaskSerializer     : External event object 0x"), 1);
}

TEST(TaskSerializer, RefusesTheHundredthTaskAndUnknownLevels) {
    const CTraceCapture trace(4);
    Recorder serializer;
    serializer.Occupy();
    const long before = live.use_count();
    for (int i = 0; i < 99; ++i) {
        ASSERT_TRUE(serializer.Insert("a"));
    }
    EXPECT_FALSE(serializer.Insert("b") || serializer.Insert("b", 1) || serializer.Insert("b", -1));
    EXPECT_EQ(live.use_count(), before + 99);
    EXPECT_EQ(serializer.Log(), "started overrun:b ");
    EXPECT_EQ(trace.Count("\nCTaskSerializer     : ## ERROR! Task queue for priority 0 is full"), 1);
    EXPECT_TRUE(trace.Has("\nCTaskSerializer     : Manager locked for Tasks at level -1. Task ignored!"));
    serializer.letGo.Set();
}

TEST(TaskSerializer, TerminationDropsWhatIsPendingAndStaysRefusing) {
    const CTraceCapture trace;
    const long before = live.use_count();
    {
        Recorder serializer;
        EXPECT_TRUE(serializer.TerminateSerialization());  // no worker: nothing is disabled
        serializer.Occupy();
        CEvent dropped(false, true);
        EXPECT_TRUE(serializer.Insert("a", 0, &dropped));
        std::thread stopper([&] { EXPECT_TRUE(serializer.TerminateSerialization()); });
        while (!trace.Has("\nCTaskSerializer     : All pending tasks removed from queues!")) {
            std::this_thread::yield();
        }
        serializer.letGo.Set();
        stopper.join();
        EXPECT_FALSE(dropped.IsSet() || serializer.Insert("a"));
        EXPECT_TRUE(serializer.StartSerialization() && !serializer.Insert("a"));
        EXPECT_TRUE(serializer.TerminateSerialization());
        EXPECT_EQ(serializer.Log(), "started block@0 empty@0 stopped started stopped ");
    }
    EXPECT_EQ(live.use_count(), before + 1);  // the dropped one is lost
}

TEST(TaskSerializer, TaskQueuedBeforeTheStartWaitsForTheNext) {
    Recorder serializer;
    EXPECT_TRUE(serializer.Insert("early"));
    EXPECT_TRUE(serializer.StartSerialization() && serializer.StartSerialization());
    EXPECT_EQ(serializer.Log(), "started ");
    serializer.Finish("next");
    EXPECT_TRUE(serializer.Log().starts_with("started early@0 next@0 "));
    const long before = live.use_count();
    EXPECT_TRUE(Recorder().Insert("never started"));
    EXPECT_EQ(live.use_count(), before);
}

TEST(TaskSerializer, ManyThreadsInsertWhileItStops) {
    Recorder serializer(2);
    serializer.Occupy();
    serializer.letGo.Set();
    std::vector<std::thread> threads(3);
    for (std::thread& thread : threads) {
        thread = std::thread([&] {
            for (int turn = 0; serializer.Insert("a", turn % 2) || turn < 2000; ++turn) {
            }
        });
    }
    EXPECT_TRUE(serializer.TerminateSerialization());
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string log = serializer.Log();
    EXPECT_EQ(log.find(" a@", log.find(" stopped ")), std::string::npos);
}
