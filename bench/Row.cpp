#include "bench/Row.h"

namespace {

void Register(const std::string& name, Clock clock, const Side& side) {
    benchmark::internal::Benchmark* const registered = benchmark::RegisterBenchmark(name.c_str(), side);
    if (clock == Clock::Real) {
        registered->UseRealTime();
    } else if (clock == Clock::Manual) {
        registered->UseManualTime();
    }
}

}  // namespace

void AddRow(const std::string& name, Clock clock, const Side& project, const Side& floor) {
    Register(name + "/project", clock, project);
    Register(name + "/floor", clock, floor);
}

void AddCount(const std::string& name, const std::function<void(benchmark::State&)>& project) {
    benchmark::RegisterBenchmark((name + "/project").c_str(), [project](benchmark::State& state) {
        for (auto _ : state) {
            project(state);
        }
    })->Iterations(1);
}
