#include <benchmark/benchmark.h>
#include <string>
#include <vector>

#include "bench/Row.h"

/// Takes the options of Google Benchmark, which follow the defaults here and so win over them.
int main(int argc, char** argv) {
    AddMailRows();
    AddMessageRows();
    AddAlertRows();
    AddTaskRows();
    AddMailTextRows();
    AddNotificationRows();
    AddIniRows();

    std::string defaults[] = {"--benchmark_enable_random_interleaving=true", "--benchmark_repetitions=15",
                              "--benchmark_min_time=0.02", "--benchmark_report_aggregates_only=true"};
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
