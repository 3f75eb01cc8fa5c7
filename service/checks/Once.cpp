// SPDX-License-Identifier: Apache-2.0
#include "service/checks/Once.h"

#include <array>
#include <csignal>
#include <cstdio>

#include "service/checks/Scheduler.h"
#include "service/components/Components.h"

namespace {

constexpr std::array<const char*, 4> kWords = {"UNKNOWN", "OK", "WARNING", "CRITICAL"};

}  // namespace

bool CheckOnce(const ServiceConfig& config) {
    CLoop loop;
    std::vector<std::unique_ptr<CCheckRun>> runs;
    std::size_t left = 0;
    std::size_t next = 0;
    bool isAnswered = true;
    std::vector<const CheckConfig*> checks;
    for (const CheckConfig& check : config.checks) {
        if (!check.command.empty()) {
            checks.push_back(&check);
        }
    }
    left = checks.size();
    runs.resize(checks.size());
    const std::function<void()> begin = [&] {
        const std::size_t place = next++;
        const CheckConfig& check = *checks[place];
        const auto tell = [&, place](const CheckResult& result) {
            isAnswered = isAnswered && result.isAnswer;
            std::printf("%s: %s - %s\n", checks[place]->name.c_str(),
                        kWords.at(static_cast<std::size_t>(result.status)), result.text.c_str());
            std::fflush(stdout);
            runs[place].reset();                            // with its descriptors
            if (std::ferror(stdout) != 0 || --left == 0) {  // nobody reads any more, or all is told
                loop.Stop();
            } else if (next < checks.size()) {
                begin();
            }
        };
        runs[place] = std::make_unique<CCheckRun>(loop, check.command, check.timeout, tell, tell);
    };
    std::vector<CLoopSource> ends;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        ends.push_back(loop.OnSignal(signal, [&loop] { loop.Stop(); }));
    }
    while (next < checks.size() && next < config.parallel) {
        begin();
    }
    if (left > 0) {
        loop.Run();
    }
    return left == 0 && isAnswered && std::ferror(stdout) == 0;
}
