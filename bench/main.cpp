// SPDX-License-Identifier: Apache-2.0
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <string>
#include <vector>

#include "bench/Row.h"

namespace {

/// The heap keeps what it has, as in a host that has run for a while: else the C library gives memory back to the
/// kernel after each larger piece of work, and the next one measures page faults.
void KeepHeap() {
    constexpr int kNoMapping = 32 << 20;
    constexpr int kNoTrim = 512 << 20;
    ::mallopt(M_MMAP_THRESHOLD, kNoMapping);
    ::mallopt(M_TRIM_THRESHOLD, kNoTrim);
}

}  // namespace

/// Takes the options of Google Benchmark, which follow the defaults here and so win over them.
int main(int argc, char** argv) {
    KeepHeap();
    AddMailRows();
    AddMessageRows();
    AddAlertRows();
    AddTaskRows();
    AddMailTextRows();
    AddNotificationRows();
    AddIniRows();
    AddLibraryRows();

    std::string defaults[] = {"--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=41",
                              "--benchmark_min_time=0.005", "--benchmark_report_aggregates_only=true"};
    std::vector<char*> arguments = {argv[0]};
    for (std::string& option : defaults) {
        arguments.push_back(option.data());
    }
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    auto count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
