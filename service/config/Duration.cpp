// SPDX-License-Identifier: Apache-2.0
#include "service/config/Duration.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

namespace {

struct Unit {
    std::string_view name;
    std::int64_t milliseconds;
};

constexpr auto kUnits = std::to_array<Unit>({
    {"ms", 1},
    {"s", 1000},
    {"min", 60000},
    {"h", 3600000},
    {"d", 86400000},
});
constexpr std::int64_t kYear = std::int64_t{366} * 86400000;

}  // namespace

std::optional<std::chrono::milliseconds> ParseDuration(std::string_view text) {
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string_view name(end, text.size() - static_cast<std::size_t>(end - text.data()));
    const auto* const unit = std::ranges::find(kUnits, name, &Unit::name);
    if (error != std::errc() || unit == kUnits.end() || number * unit->milliseconds > kYear) {
        return std::nullopt;
    }
    return std::chrono::milliseconds(number * unit->milliseconds);
}
