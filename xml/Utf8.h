// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Reads the UTF-8 sequence at the start of a text that is not empty.
/// @return its length in bytes; 0 when it is cut off, overlong, a surrogate or past U+10FFFF
std::size_t ReadUtf8(std::string_view text, std::uint32_t& character);

/// Appends a character.
/// @return false, with nothing appended, for a surrogate and past U+10FFFF
bool AppendUtf8(std::string& text, std::uint32_t character);

/// True when the bytes are well-formed UTF-8.
bool IsUtf8(std::string_view text);
