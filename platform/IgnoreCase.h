// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string_view>

/// True when the words differ in nothing but the case of ASCII letters. The C library would go by the locale of the
/// host, and in a Turkish one "I" is not the capital of "i".
inline bool EqualIgnoringCase(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return std::ranges::equal(a, b, {}, lower, lower);
}
