// SPDX-License-Identifier: Apache-2.0
#include "platform/ini/IniText.h"

#include <algorithm>

namespace {

constexpr bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view TrimLeft(std::string_view text) {
    std::size_t first = 0;
    while (first < text.size() && IsBlank(text[first])) {
        ++first;
    }
    return text.substr(first);
}

std::string_view TrimRight(std::string_view text) {
    while (!text.empty() && IsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

}  // namespace

/// True when the character at `mark` stands right behind an item of a list.
bool CIniLine::EndsItem(std::size_t mark) const {
    const std::size_t equals = text.substr(0, mark).find('=');
    if (equals == std::string_view::npos || IsBlank(text[mark - 1])) {
        return false;
    }
    const std::string_view list = text.substr(equals + 1, mark - equals - 1);
    return std::ranges::any_of(list, [](char c) { return !IsBlank(c) && c != ','; });
}

std::string_view CIniLine::WithoutComment(Comment comment) const {
    std::size_t mark = text.find(';');
    while (comment == Comment::BehindBlank && mark != std::string_view::npos && EndsItem(mark)) {
        mark = text.find(';', mark + 1);
    }
    const std::string_view content = text.substr(0, mark);
    return TrimRight(content.substr(0, content.find('\0')));
}

std::optional<std::string_view> CIniLine::Header() const {
    if (!text.starts_with('[')) {
        return std::nullopt;
    }
    const std::string_view content = WithoutComment(Comment::Anywhere);
    const std::size_t close = content.find(']');
    return close == std::string_view::npos ? std::nullopt : std::optional(content.substr(1, close - 1));
}

bool CIniLine::Split(std::string_view& name, std::string_view& value, Comment comment) const {
    const std::string_view content = WithoutComment(comment);
    const std::size_t equals = content.find('=');
    if (equals == std::string_view::npos) {
        return false;
    }
    name = TrimRight(content.substr(0, equals));
    value = TrimLeft(content.substr(equals + 1));
    return true;
}

std::optional<std::string_view> CIniLine::ValueOf(std::string_view key, Comment comment) const {
    std::string_view name;
    std::string_view value;
    const bool found = text.starts_with(key) && Split(name, value, comment) && name == key;
    return found ? std::optional(value) : std::nullopt;
}

bool CIniText::Next(CIniLine& line) {
    const std::string_view candidate = text_.substr(next_, kLineLimit);
    const std::size_t newline = candidate.find('\n');
    line.begin = next_;
    next_ += newline == std::string_view::npos ? candidate.size() : newline + 1;
    line.end = next_;
    line.text = TrimLeft(text_.substr(line.begin, next_ - line.begin));
    return line.end > line.begin;
}

bool CIniText::FindSection(std::string_view name, CIniLine& header) {
    // Only lines that hold a bracket are looked at; most of a file is skipped at the speed of memchr.
    for (std::size_t open = text_.find('[', next_); open != std::string_view::npos; open = text_.find('[', next_)) {
        const std::size_t newline = text_.substr(next_, open - next_).rfind('\n');
        const std::size_t physical = newline == std::string_view::npos ? next_ : next_ + newline + 1;
        next_ = open - (open - physical) % kLineLimit;
        Next(header);
        if (header.Header() == name) {
            return true;
        }
    }
    next_ = text_.size();
    Next(header);
    return false;
}
