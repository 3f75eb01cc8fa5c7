// SPDX-License-Identifier: Apache-2.0
#include <absl/strings/str_replace.h>

#include "bench/Row.h"
#include "mail/texts/AlertMailTexts.h"

namespace {

/// All 19 variables. Their values are not fetched here: they come from the agent and the kernel, which takes longer
/// than all work on a usual text.
const std::string kTokens[] = {"$(SystemStatus)",
                               "$(ComponentName)",
                               "$(ComponentDesignation)",
                               "$(ComponentStatus)",
                               "$(UpdateMessage)",
                               "$(Date)",
                               "$(Time)",
                               "$(HostName)",
                               "$(HostNameFQ)",
                               "$(HostIPAddress)",
                               "$(HostIPv4Address)",
                               "$(HostIPv6Address)",
                               "$(SystemModel)",
                               "$(SystemSerialNr)",
                               "$(SystemAssetID)",
                               "$_SRV",
                               "$_IPA",
                               "$_TIM",
                               "$_IDN"};
const std::string kValue = "a value of usual length";

/// Prose with every variable in each 1024 bytes.
std::string Template(std::size_t bytes) {
    std::string kilobyte;
    for (const std::string& token : kTokens) {
        kilobyte += "What follows is known to the server: " + token + "\n";
    }
    std::string text;
    while (text.size() < bytes) {
        text += kilobyte;
    }
    text.resize(bytes);
    return text;
}

std::string Repeated(std::string_view text, int times) {
    std::string repeated;
    for (int i = 0; i < times; ++i) {
        repeated += text;
    }
    return repeated;
}

/// What CAlertMailTexts does for each of its variables.
void TextProject(benchmark::State& state, const std::string& original) {
    Measure(state, [&] {
        CLumeString text(original);
        for (const std::string& token : kTokens) {
            if (CAlertMailTexts::ContainsVariableName(text, token.c_str())) {
                CLumeString::ReplaceTokenIgnoreCase(text, token, kValue);
            }
        }
        benchmark::DoNotOptimize(text);
    });
}

/// Case matters here, and a value that is inserted is not looked at again.
void TextFloor(benchmark::State& state, const std::string& original) {
    Measure(state, [&] {
        std::string text(original);
        for (const std::string& token : kTokens) {
            absl::StrReplaceAll({{token, kValue}}, &text);
        }
        benchmark::DoNotOptimize(text);
    });
}

}  // namespace

void AddMailTextRows() {
    for (const auto& [row, bytes] : {std::pair("mail-text/1KB", 1024U), std::pair("mail-text/64KB", 65536U)}) {
        AddRow(
            row, Clock::Cpu, [size = bytes](benchmark::State& state) { TextProject(state, Template(size)); },
            [size = bytes](benchmark::State& state) { TextFloor(state, Template(size)); });
    }
    AddRow(
        "mail-text/ten-times-the-tokens", Clock::Cpu,
        [](benchmark::State& state) { TextProject(state, Repeated("$(ComponentName) ", 10000)); },
        [](benchmark::State& state) { TextProject(state, Repeated("$(ComponentName) ", 1000)); });
}
