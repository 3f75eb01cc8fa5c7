// SPDX-License-Identifier: Apache-2.0
#include <cstdio>

#include "bench/Row.h"

namespace {

/// Loads a library in a process of its own, which tells how long that took and what memory it has then.
void Load(benchmark::State& state, const std::string& library) {
    MeasureReported(state, [&] {
        double seconds = 0;
        long kilobytes = 0;
        std::FILE* const loader = ::popen((std::string(EM_BENCH_LOADER " ") + library).c_str(), "re");
        if (std::fscanf(loader, "%lf %ld", &seconds, &kilobytes) != 2 || ::pclose(loader) != 0) {
            state.SkipWithError("the library was not loaded");
        }
        state.counters["kilobytes"] = static_cast<double>(kilobytes);
        return seconds;
    });
}

}  // namespace

void AddLibraryRows() {
    AddRow(
        "library/load", Clock::Manual, [](benchmark::State& state) { Load(state, EM_BENCH_MODULE); },
        [](benchmark::State& state) { Load(state, EM_BENCH_EMPTY_LIBRARY); }, 1);
}
