#include "bench/Row.h"

namespace {

void Register(const std::string& name, Clock clock, const Side& side, int iterations) {
    benchmark::internal::Benchmark* const registered = benchmark::RegisterBenchmark(name.c_str(), side);
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
