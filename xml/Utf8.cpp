// SPDX-License-Identifier: Apache-2.0
#include "xml/Utf8.h"

#include <algorithm>
#include <bit>

namespace {

constexpr std::uint32_t kLast = 0x10FFFF;

bool IsSurrogate(std::uint32_t character) {
    return character >= 0xD800 && character <= 0xDFFF;
}

}  // namespace

std::size_t ReadUtf8(std::string_view text, std::uint32_t& character) {
    const auto lead = static_cast<unsigned char>(text[0]);
    const auto length = static_cast<std::size_t>(std::countl_one(lead));
    if (length == 0) {
        character = lead;
        return 1;
    }
    constexpr std::uint32_t kSmallest[] = {0x80, 0x800, 0x10000};  // of 2, 3 and 4 bytes
    if (length < 2 || length > 4 || text.size() < length) {
        return 0;
    }
    character = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        character = character << 6 | (next & 0x3FU);
    }
    return character < kSmallest[length - 2] || character > kLast || IsSurrogate(character) ? 0 : length;
}

bool AppendUtf8(std::string& text, std::uint32_t character) {
    if (character > kLast || IsSurrogate(character)) {
        return false;
    }
    if (character < 0x80) {
        text += static_cast<char>(character);
        return true;
    }
    const int more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    text += static_cast<char>((0xFF00U >> (more + 1) & 0xFFU) | character >> 6 * more);
    for (int i = more - 1; i >= 0; --i) {
        text += static_cast<char>(0x80U | (character >> 6 * i & 0x3FU));
    }
    return true;
}

bool IsUtf8(std::string_view text) {
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    const auto* const end = text.data() + text.size();
    for (const auto* at = text.data(); (at = std::find_if_not(at, end, isAscii)) != end;) {
        std::uint32_t character{};
        const std::size_t length = ReadUtf8({at, static_cast<std::size_t>(end - at)}, character);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}
