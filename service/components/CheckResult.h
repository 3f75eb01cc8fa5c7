// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

/// A component's status as events and people know it.
enum class ComponentStatus : std::uint32_t { Unknown = 0, Ok = 1, Warning = 2, Critical = 3 };

/// What a plugin, or somebody who reports, says of a component.
struct CheckResult {
    ComponentStatus status = ComponentStatus::Unknown;
    std::string text;  ///< one line that can be shown anywhere
    std::chrono::duration<double> took{0};
    bool isAnswer = true;  ///< false: the check could not be started, crashed, or was ended
};

/// The status for a plugin's exit status: 0 OK, 1 warning, 2 critical; any other is unknown.
ComponentStatus StatusOfExit(int exitStatus);

/// The first line of a plugin's output, up to "|" (what follows are figures for machines), of at most 1,000 bytes, in
/// valid UTF-8 without control characters: each byte that is none becomes "?".
std::string FirstLine(std::string_view output);
