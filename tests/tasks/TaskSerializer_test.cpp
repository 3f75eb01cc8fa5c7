#include "tasks/TaskSerializer.h"

#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <functional>
#include <poll.h>
#include <regex>
#include <thread>

#include <gtest/gtest.h>

#include "support/TraceCapture.h"

namespace {

std::function<void()> onSleep;  // once
std::atomic<bool> threadsFail{false};

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

/// Writes down what it is called for, and throws each time except for the task "fine". The task "block" waits to be let
/// go.
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
    /// Starts the worker and keeps it busy.
    void Occupy() {
        ASSERT_TRUE(StartSerialization() && Insert("block"));
        ASSERT_EQ(blocked.Wait(CEvent::kForever), CEvent::kSignalled);
    }
    /// Queues the last task, lets the worker go and waits for it.
    void Finish(const std::string& task) {
        CEvent done(false, true);
        ASSERT_TRUE(Insert(task, 0, &done));
        letGo.Set();
        ASSERT_EQ(done.Wait(CEvent::kForever), CEvent::kSignalled);
        EXPECT_TRUE(TerminateSerialization());
    }

    CEvent blocked{false, true};
    CEvent letGo{false, true};
    std::function<void()> onEmpty;
    std::string log;  // of the worker; and of a thread that inserts one task too many

protected:
    void OnTaskExecution(Message& message, _TaskPriority level) override {
        if (message.text == "block") {
            blocked.Set();
            letGo.Wait(CEvent::kForever);
        }
        message.text += '@';
        message.text != "fine@" ? Write(message.text + std::to_string(level)) : void();
    }
    void OnTaskQueueEmpty(_TaskPriority level) override {
        onEmpty ? onEmpty() : Write("empty" + std::to_string(level));
    }
    void OnTaskQueueNodeOverrun(Message& message, _TaskPriority level) override {
        Write("overrun:" + message.text + std::to_string(level));
    }
    void OnSerializationStarted() override { Write("started"); }
    void OnSerializationStopped() override { Write("stopped"); }

private:
    void Write(const std::string& line) {
        log += line + ' ';
        throw 1;
    }
};

}  // namespace

// This program's own: nobody sleeps, and threads are refused when told to.
#define OWN extern "C" __attribute__((visibility("default")))

OWN int nanosleep(const timespec* time, timespec* /*rest*/) {
    if (const auto hook = std::exchange(onSleep, nullptr)) {
        hook();
    }
    EM_TRACE(1, "sleep %ld", static_cast<long>(time->tv_sec * 1000000000 + time->tv_nsec));
    return 0;
}
OWN int pthread_attr_setschedparam(pthread_attr_t* attributes, const sched_param* priority) noexcept {
    static const auto real =
        reinterpret_cast<decltype(&pthread_attr_setschedparam)>(::dlsym(RTLD_NEXT, "pthread_attr_setschedparam"));
    return threadsFail ? EINVAL : real(attributes, priority);
}

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

TEST(TaskSerializer, TracesItsLifeInOrderAndSleepsWhenIdle) {
    // "^" and "$" stand for newlines; one before the tag of this class is not shown.
    const std::string waiting = "4 Waiting on task queue for next task ...\n";
    const std::string woken = "4 Wakeup from (any) task queue!\n4 Checking Task queue for Task records ..\n";
    const std::string inserted = "4 Task at level 0 raised\n5 Task with priority 0 inserted into task queue!\n";
    const std::string process = woken + "5 Process Task (Record #) at level 0\n";
    const std::string empty = "1 ^## EXCEPTION in OnTaskQueueEmpty()! ##\n" + waiting + woken + waiting;
    const std::string all =
        "4 Enable all Tasks\n4 StartSerialization!\n"
        "1 CThread::SetThreadName: ThreadId = #, DebugName = EM_ALERT, Qualifier = (_TaskHandler)$\n"
        "5 ^CThread::Start: Start a thread, Prio=83, Suspend=0, StackSize=0x00000000, Waitable=1, KillAliveThread=0\n"
        "4 START THREAD TaskHandler()!\n1 ^## EXCEPTION in OnSerializationStarted()! ##\n" +
        waiting + "1 sleep 100000000\n" + inserted + process +
        "5 Task (Record #) at level 0 completed\n5 External event object # set!\n" + empty + inserted + process +
        "1 ^## EXCEPTION in OnTaskExecution()! ##\n1 ERROR setting external event object #!\n" + empty +
        "4 Task at level 1 raised\n4 Manager locked for Tasks at level 1. Task ignored!\n"
        "4 TerminateSerialization!\n4 Disable all Tasks\n4 All pending tasks removed from queues!\n"
        "4 Wakeup from (any) task queue!\n1 ^## EXCEPTION in OnSerializationStopped()! ##\n"
        "4 EXIT THREAD TaskHandler()!\n1 THREAD_RETURN: ## INFO: Thread = # exited, Return = 0x00000000##$\n"
        "1 sleep 100000000\n1 ^CThread::Kill: Try to kill the Thread = #\n5   terminated\n"
        "4 TerminateSerialization!\n5   terminated\n4 TerminateSerialization!\n5   terminated\n4 ^Class destroyed!\n";
    for (char level = '1'; level <= '5'; ++level) {
        const CTraceCapture trace(level - '0');
        const auto count = [&](int waits, int exceptions) {
            return trace.Count("Waiting on") == (level < '4' ? 0 : waits) && trace.Count("## EXCEPTION") == exceptions;
        };
        {
            onSleep = [&] { EXPECT_TRUE(Await([&] { return count(1, 1); })); };
            Recorder serializer;
            ASSERT_TRUE(serializer.StartSerialization());
            CEvent done(false, true);
            EXPECT_TRUE(serializer.Insert("fine", 0, &done));
            EXPECT_TRUE(Await([&] { return done.IsSet() && count(3, 2); }));
            EXPECT_TRUE(done.Close() && serializer.Insert("a", 0, &done));
            EXPECT_TRUE(Await([&] { return count(5, 4); }));
            EXPECT_FALSE(Await([&] { return !count(5, 4); }, 20));  // asleep
            EXPECT_FALSE(serializer.Insert("a", 1));
            onSleep = [&] { EXPECT_TRUE(Await([&] { return trace.Has("THREAD_RETURN"); })); };
            EXPECT_TRUE(serializer.TerminateSerialization());
        }
        std::string wanted;
        std::istringstream lines(all);
        for (std::string line; std::getline(lines, line); wanted += line[0] <= level ? line.substr(2) + '\n' : "") {
        }
        std::string traced;
        for (std::string print : trace.Prints()) {
            if (std::regex_search(print, std::regex("TaskSerializer|THREAD_R|SetThr|Start a|Try to kill the|sleep"))) {
                print = std::regex_replace(print, std::regex("\nCTaskSerializer     : "), "");
                print =
                    std::regex_replace(print, std::regex("((Record|object|Thread(Id)?( =)?) )0x[0-9A-F]{1,8}"), "$1#");
                traced += std::regex_replace(print, std::regex("^\n"), "^");
                traced.back() == '\n' ? traced.back() = '$' : ' ';
                traced += '\n';
            }
        }
        EXPECT_EQ(traced, wanted) << level;
    }
}

TEST(TaskSerializer, ServesTheHighestLevelFirst) {
    const CTraceCapture trace;
    Recorder serializer(3);
    serializer.Occupy();
    for (const int level : {0, 2, 1, 2}) {
        EXPECT_TRUE(serializer.Insert("a", level));
    }
    serializer.Finish("b");
    EXPECT_EQ(serializer.log, "started block@0 a@2 a@2 empty2 a@1 empty1 a@0 b@0 empty0 stopped ");
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
    EXPECT_EQ(serializer.log, "started overrun:b0 ");
    EXPECT_EQ(trace.Count("\nCTaskSerializer     : ## ERROR! Task queue for priority 0 is full"), 1);
    EXPECT_EQ(trace.Count("\nCTaskSerializer     : Manager locked for Tasks at level -1. Task ignored!"), 1);
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
        onSleep = [&] { serializer.letGo.Set(); };
        EXPECT_TRUE(serializer.TerminateSerialization());
        EXPECT_FALSE(dropped.IsSet() || serializer.Insert("a"));
        EXPECT_TRUE(serializer.StartSerialization() && !serializer.Insert("a"));
        EXPECT_TRUE(serializer.TerminateSerialization());
        EXPECT_EQ(serializer.log, "started block@0 empty0 stopped started stopped ");
    }
    EXPECT_EQ(live.use_count(), before + 1);  // the dropped one is lost
}

TEST(TaskSerializer, TaskQueuedBeforeTheStartWaitsForTheNext) {
    Recorder serializer;
    EXPECT_TRUE(serializer.Insert("early"));
    EXPECT_TRUE(serializer.StartSerialization() && serializer.StartSerialization());
    ::poll(nullptr, 0, 20);
    serializer.Finish("next");
    EXPECT_TRUE(serializer.log.starts_with("started early@0 next@0 "));
    const long before = live.use_count();
    EXPECT_TRUE(Recorder().Insert("never started"));
    EXPECT_EQ(live.use_count(), before);
}

TEST(TaskSerializer, StartThatFailedIsTriedAgainUntilTheTermination) {
    const CTraceCapture trace;
    Recorder serializer;
    threadsFail = true;
    EXPECT_FALSE(serializer.StartSerialization() || serializer.Insert("refused"));
    EXPECT_EQ(trace.Count("\nCTaskSerializer     : ERROR! The worker thread could not be started!"), 2);
    threadsFail = false;
    std::vector<std::jthread> others;
    const auto othersWait = [&] {
        const int starts = trace.Count("StartSerialization!");
        others.emplace_back([&] { serializer.StartSerialization(); });
        others.emplace_back([&] { serializer.Insert("other"); });
        EXPECT_FALSE(Await([&] { return trace.Count("StartSerialization!") != starts; }, 20));
    };
    onSleep = othersWait;
    EXPECT_TRUE(serializer.Insert("a"));
    others.clear();
    onSleep = othersWait;
    serializer.Finish("b");
    others.clear();
    EXPECT_EQ(trace.Count("StartSerialization!"), 5);
    EXPECT_TRUE(serializer.log.starts_with("started "));
    EXPECT_EQ(serializer.log.find("refused"), std::string::npos);

    Recorder never;
    threadsFail = true;
    EXPECT_TRUE(!never.StartSerialization() && never.TerminateSerialization());
    threadsFail = false;
    EXPECT_TRUE(never.Insert("a"));
    EXPECT_EQ(trace.Count("StartSerialization!"), 6);
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
    EXPECT_EQ(serializer.log.find(" a@", serializer.log.find(" stopped ")), std::string::npos);
}
