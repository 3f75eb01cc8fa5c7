// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// True when `text` holds a byte below 0x20, or 0x7F: it could end the line or the command that carries it.
bool HasControlCharacter(std::string_view text);

/// `text` for a trace: without the line end, a "?" for every other control character.
std::string Printable(std::string_view text);

/// Builds the header of a mail, the only place that does: no value, wherever it came from, can open a line of its own.
class CHeaderLines {
public:
    /// @param lineEnd  what ends each line
    explicit CHeaderLines(std::string_view lineEnd) : lineEnd_(lineEnd) {}

    /// Adds "name" + "value" and ends the line. CR, LF and NUL in either become blanks.
    void Add(std::string_view name, std::string_view value = {});

    /// The same without the line end: the next line goes on behind it.
    void AddUnfinished(std::string_view name, std::string_view value);

    /// Adds the lines that mail programs read for an importance of 0 (low), 1 or 2 (high); none for any other value.
    void AddImportance(std::int32_t importance);

    /// What has been built.
    const std::string& Text() const { return text_; }

    /// `text` as it may stand in a header line or an SMTP command.
    static std::string OneLine(std::string_view text);

    /// The addresses with a comma between them.
    static std::string Join(const std::vector<std::string>& addresses);

private:
    std::string_view lineEnd_;
    std::string text_;
};
