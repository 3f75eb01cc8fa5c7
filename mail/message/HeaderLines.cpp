// SPDX-License-Identifier: Apache-2.0
#include "mail/message/HeaderLines.h"

#include <algorithm>

namespace {

bool IsControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

}  // namespace

bool HasControlCharacter(std::string_view text) {
    return std::ranges::any_of(text, IsControl);
}

std::string Printable(std::string_view text) {
    while (text.ends_with('\n') || text.ends_with('\r')) {
        text.remove_suffix(1);
    }
    std::string printable(text);
    std::replace_if(printable.begin(), printable.end(), IsControl, '?');
    return printable;
}

void CHeaderLines::Add(std::string_view name, std::string_view value) {
    AddUnfinished(name, value);
    text_ += lineEnd_;
}

void CHeaderLines::AddUnfinished(std::string_view name, std::string_view value) {
    text_ += OneLine(name);
    text_ += OneLine(value);
}

void CHeaderLines::AddImportance(std::int32_t importance) {
    static constexpr struct {
        std::string_view priority;
        std::string_view importance;
    } kLines[] = {
        {"X-Priority: 5", "Importance: Low"},
        {"X-Priority: 3", "Importance: Normal"},
        {"X-Priority: 1", "Importance: High"},
    };
    if (importance >= 0 && importance < static_cast<std::int32_t>(std::size(kLines))) {
        Add(kLines[importance].priority);
        Add(kLines[importance].importance);
    }
}

std::string CHeaderLines::OneLine(std::string_view text) {
    std::string line(text);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
    return line;
}

std::string CHeaderLines::Join(const std::vector<std::string>& addresses) {
    std::string list;
    for (const std::string& address : addresses) {
        if (&address != &addresses.front()) {
            list += ',';
        }
        list += address;
    }
    return list;
}
