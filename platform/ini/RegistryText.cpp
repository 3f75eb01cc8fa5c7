// SPDX-License-Identifier: Apache-2.0
#include "platform/ini/RegistryText.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <optional>

namespace {

constexpr std::size_t kMaxKeySize = 1024;
constexpr std::size_t kEndSize = 21;  // "end ", 16 digits and the line feed

/// Each byte that has a meaning in the file, and the letter behind a backslash that stands for it.
struct Escape {
    char byte;
    char letter;
};
constexpr Escape kEscapes[] = {{'\\', '\\'}, {'\n', 'n'}, {'\r', 'r'}, {'\0', '0'}, {'=', 'e'}, {'#', 'h'}};

void AppendEscaped(std::string& line, std::string_view text) {
    for (const char byte : text) {
        char letter = '\0';
        for (const Escape& escape : kEscapes) {
            letter = byte == escape.byte ? escape.letter : letter;
        }
        if (letter != '\0') {
            line += '\\';
        }
        line += letter != '\0' ? letter : byte;
    }
}

std::optional<std::string> Unescape(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            result += text[at];
            continue;
        }
        const std::size_t size = result.size();
        const std::string_view rest = text.substr(++at);
        for (const Escape& escape : kEscapes) {
            if (rest.starts_with(escape.letter)) {
                result += escape.byte;
            }
        }
        if (result.size() == size) {
            return std::nullopt;
        }
    }
    return result;
}

std::string EndLine(std::string_view body) {
    std::uint64_t sum = 0xcbf29ce484222325U;  // offset and prime of FNV-1a
    for (const char byte : body) {
        sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001b3U;
    }
    char line[kEndSize + 1];
    std::snprintf(line, sizeof line, "end %016llx\n", static_cast<unsigned long long>(sum));
    return line;
}

/// @return what is wrong with the line; empty when nothing is
std::string ParseLine(std::string_view line, CRegistryValues& values) {
    if (line.empty() || line.front() == '#') {
        return {};
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
        return "is not of the form key=value";
    }
    auto key = Unescape(line.substr(0, equals));
    auto value = Unescape(line.substr(equals + 1));
    if (!key || !value) {
        return "holds a backslash without a meaning";
    }
    if (!IsRegistryKey(*key)) {
        return "has no valid key";
    }
    return values.emplace(std::move(*key), std::move(*value)).second ? "" : "holds a key for the second time";
}

}  // namespace

bool IsRegistryKey(std::string_view key) {
    return !key.empty() && key.size() <= kMaxKeySize && key.front() != '/' && key.back() != '/' &&
           key.find("//") == std::string_view::npos;
}

std::string ParseRegistry(std::string_view text, bool mustBeSummed, CRegistryValues& values) {
    values.clear();
    const std::string_view body = text.substr(0, text.size() - std::min(text.size(), kEndSize));
    if (text.substr(body.size()) == EndLine(body)) {
        text = body;
    } else if (mustBeSummed) {
        return "its last line does not fit the lines before";
    }
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t length = std::min(text.find('\n'), text.size());
        const std::string fault = ParseLine(text.substr(0, length), values);
        if (!fault.empty()) {
            values.clear();
            return "line " + std::to_string(number) + " " + fault;
        }
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return {};
}

std::string FormatRegistry(const CRegistryValues& values) {
    std::string text;
    for (const auto& [key, value] : values) {
        AppendEscaped(text, key);
        text += '=';
        AppendEscaped(text, value);
        text += '\n';
    }
    return text + EndLine(text);
}
