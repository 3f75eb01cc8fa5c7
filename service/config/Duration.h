// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

/// Reads a time such as "500ms", "10s", "1min", "24h" or "7d": a whole number and its unit, with nothing else around.
/// @return nothing for any other text and for more than a year
std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text);
