// SPDX-License-Identifier: Apache-2.0
#include "agent/traces/ModuleTraces.h"

#include <array>
#include <charconv>
#include <cstdlib>
#include <string_view>

namespace {

constexpr const char* kTraceLevel = "LUME_LOG_DEBUG_LEVEL";
constexpr unsigned kLevelOfMailResults = 2;
// Whole prints: a component's name may hold anything, and is traced as well.
constexpr auto kMailResults = std::to_array<std::string_view>({
    "EM_ALERT            : Send System Status Mail return code: ",
    "EM_ALERT            : Send Update Mail return code: ",
});

}  // namespace

void SetTraceLevel(std::optional<unsigned> level) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
    ::setenv(kTraceLevel, std::to_string(level.value_or(kLevelOfMailResults)).c_str(), 0);
}

bool IsTraceLevelSet() {
    return std::getenv(kTraceLevel) != nullptr;  // NOLINT(concurrency-mt-unsafe): as the header demands
}

void ReplaceTraceLevel(unsigned level) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): as the header demands
    ::setenv(kTraceLevel, std::to_string(level).c_str(), 1);
}

std::optional<int> MailReturnCode(const std::string& print) {
    for (const std::string_view result : kMailResults) {
        int code = 0;
        if (print.starts_with(result)) {
            std::from_chars(print.data() + result.size(), print.data() + print.size(), code);
            return code;
        }
    }
    return std::nullopt;
}

bool IsMailSkipped(const std::string& print) {
    return print.find("Mail alert skipped") != std::string::npos;
}
