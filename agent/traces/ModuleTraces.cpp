// SPDX-License-Identifier: Apache-2.0
#include "agent/traces/ModuleTraces.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace {

constexpr const char* kTraceLevel = "LUME_LOG_DEBUG_LEVEL";
constexpr unsigned kLevelOfMailResults = 2;
constexpr std::string_view kMailResult = "Mail return code: ";

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
    const auto at = print.find(kMailResult);
    if (at == std::string::npos) {
        return std::nullopt;
    }
    int code = 0;
    std::from_chars(print.data() + at + kMailResult.size(), print.data() + print.size(), code);
    return code;
}
