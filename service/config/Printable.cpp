// SPDX-License-Identifier: Apache-2.0
#include "service/config/Printable.h"

#include "agent/core/Json.h"

namespace {

constexpr unsigned int kFirstPrintable = 0x20;
constexpr unsigned int kDelete = 0x7F;
constexpr unsigned int kLastControl = 0x9F;  // of those beyond ASCII, which terminals obey as well

bool IsControl(unsigned int character) {
    return character < kFirstPrintable || (character >= kDelete && character <= kLastControl);
}

}  // namespace

std::string Printable(std::string_view text, std::size_t longest) {
    std::string line;
    while (!text.empty() && line.size() < longest) {
        std::string_view rest = text;
        const auto character = TakeCharacter(rest);
        const std::size_t length = text.size() - rest.size();
        if (!character || IsControl(*character)) {
            line += character == unsigned{'\t'} ? ' ' : '?';
        } else if (line.size() + length <= longest) {
            line += text.substr(0, length);
        }
        text = rest;
    }
    return line;
}
