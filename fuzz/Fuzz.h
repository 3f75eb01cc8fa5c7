// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "testing/TempDirectory.h"

/// What a harness is: called with one input after the other, in one process. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Takes an input apart into fields, which a line "~" separates: inputs stay readable, and joining two makes sense.
class CFuzzInput {
public:
    CFuzzInput(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

    /// The next field; empty when the input is used up.
    std::string Text() {
        constexpr std::string_view kSeparator = "\n~\n";
        const std::size_t end = rest_.find(kSeparator);
        const std::string field(rest_.substr(0, end));
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + kSeparator.size());
        return field;
    }

    /// The next field up to its first zero, as C functions read it.
    std::string CText() { return Text().c_str(); }

    /// The decimal number at the start of the next field; rubbish reads as 0.
    long Number();

    /// All that is left, separators included.
    std::string Rest() {
        const std::string rest(rest_);
        rest_ = {};
        return rest;
    }

private:
    std::string_view rest_;
};

/// Ends the process, which makes the input a finding.
[[noreturn]] void Break(const char* promise);

/// For a promise that has to hold.
inline void Expect(bool holds, const char* promise) {
    if (!holds) {
        Break(promise);
    }
}

/// True when each line feed follows a carriage return.
bool HasNoLoneLineFeed(std::string_view text);
