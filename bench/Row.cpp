// SPDX-License-Identifier: Apache-2.0
#include "bench/Row.h"

#include <optional>
#include <sched.h>
#include <thread>

namespace {

/// Keeps the thread on the last processor while it lives, away from most of what else the machine does.
class CPinned {
public:
    CPinned() {
        ::sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t last;
        CPU_ZERO(&last);
        CPU_SET(std::thread::hardware_concurrency() - 1, &last);
        ::sched_setaffinity(0, sizeof last, &last);
    }
    ~CPinned() { ::sched_setaffinity(0, sizeof before_, &before_); }
    CPinned(const CPinned&) = delete;
    CPinned& operator=(const CPinned&) = delete;

private:
    cpu_set_t before_{};
};

void Register(const std::string& name, Clock clock, const Side& side, int iterations) {
    const auto run = [clock, side](benchmark::State& state) {
        std::optional<CPinned> pinned;
        if (clock == Clock::Cpu) {
            pinned.emplace();
        }
        side(state);
    };
    benchmark::internal::Benchmark* const registered = benchmark::RegisterBenchmark(name.c_str(), run);
    if (clock == Clock::Real) {
        registered->UseRealTime();
    } else if (clock == Clock::Manual) {
        registered->UseManualTime();
    }
    if (iterations > 0) {
        registered->Iterations(iterations);
    }
}

}  // namespace

void AddRow(const std::string& name, Clock clock, const Side& project, const Side& floor, int iterations) {
    Register(name + "/project", clock, project, iterations);
    Register(name + "/floor", clock, floor, iterations);
}

void AddCount(const std::string& name, const std::function<void(benchmark::State&)>& project) {
    const auto count = [project](benchmark::State& state) {
        for (auto _ : state) {
            project(state);
        }
    };
    Register(name + "/project", Clock::Cpu, count, 1);
}
