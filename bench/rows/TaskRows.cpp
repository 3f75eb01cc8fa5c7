// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "bench/BareMessage.h"
#include "bench/Row.h"
#include "tasks/TaskSerializer.h"

namespace {

constexpr int kBurst = 64;
constexpr auto kIdle = std::chrono::microseconds(200);  // by then a worker sleeps

/// What the tasks of both sides do: they count down, note when, and tell who waits for the last of them.
class CCountdown {
public:
    void Start(int tasks) { left_.store(tasks, std::memory_order_relaxed); }
    void Ran() {
        ran_ = std::chrono::steady_clock::now();
        if (left_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            left_.notify_one();
        }
    }
    void Wait() const {
        for (int left = left_.load(std::memory_order_acquire); left != 0;
             left = left_.load(std::memory_order_acquire)) {
            left_.wait(left, std::memory_order_acquire);
        }
    }
    std::chrono::steady_clock::time_point LastRun() const { return ran_; }

private:
    std::atomic<int> left_{0};
    std::chrono::steady_clock::time_point ran_;
};

class CSerializer final : public CTaskSerializer<SipJson> {
public:
    CSerializer() : CTaskSerializer(1, 800) { StartSerialization(); }
    ~CSerializer() override { TerminateSerialization(); }
    CSerializer(const CSerializer&) = delete;
    CSerializer& operator=(const CSerializer&) = delete;

    void Insert(SipJson& message) { InsertTask(message, 0, nullptr); }
    CCountdown countdown;

private:
    void OnTaskExecution(SipJson& /*message*/, _TaskPriority /*level*/) override { countdown.Ran(); }
};

class CBareQueue {
public:
    CBareQueue() : worker_([this] { Run(); }) {}
    ~CBareQueue() {
        {
            const std::lock_guard lock(mutex_);
            ends_ = true;
        }
        wake_.notify_one();
        worker_.join();
    }
    CBareQueue(const CBareQueue&) = delete;
    CBareQueue& operator=(const CBareQueue&) = delete;

    void Insert(const SipJson& message) {
        auto copy = std::make_unique<SipJson>(message);
        {
            const std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(copy));
        }
        wake_.notify_one();
    }
    CCountdown countdown;

private:
    void Run() {
        std::unique_lock lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return ends_ || !tasks_.empty(); });
            if (ends_) {
                return;
            }
            std::unique_ptr<SipJson> task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            countdown.Ran();
            task.reset();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::unique_ptr<SipJson>> tasks_;
    bool ends_ = false;
    std::thread worker_;
};

template <class Queue>
void Burst(benchmark::State& state) {
    SipJson event = StatusEvent();
    Queue queue;
    Measure(state, [&] {
        queue.countdown.Start(kBurst);
        for (int i = 0; i < kBurst; ++i) {
            queue.Insert(event);
        }
        queue.countdown.Wait();
    });
}

template <class Queue>
void IdleToRun(benchmark::State& state) {
    SipJson event = StatusEvent();
    Queue queue;
    MeasureReported(state, [&] {
        std::this_thread::sleep_for(kIdle);
        queue.countdown.Start(1);
        const auto begin = std::chrono::steady_clock::now();
        queue.Insert(event);
        queue.countdown.Wait();
        return std::chrono::duration<double>(queue.countdown.LastRun() - begin).count();
    });
}

}  // namespace

void AddTaskRows() {
    AddRow("task/burst-of-64", Clock::Real, Burst<CSerializer>, Burst<CBareQueue>);
    AddRow("task/idle-to-run", Clock::Manual, IdleToRun<CSerializer>, IdleToRun<CBareQueue>);
}
