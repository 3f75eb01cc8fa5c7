// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

inline constexpr std::string_view kXmlBlanks = " \t\r\n";

/// True for what XML 1.0 can hold: no control characters but tab and line ends, no surrogates, no U+FFFE and U+FFFF.
bool IsXmlCharacter(std::uint32_t character);

/// Walks through a text in UTF-8 once, by what the grammar of XML calls its symbols. Each `Take...` goes behind what it
/// names and returns true, or notes what is wrong, stays where that is, and returns false. The text outlives the
/// scanner. One thread at a time.
class CXmlScanner {
public:
    explicit CXmlScanner(std::string_view text) : text_(text) {}

    /// What was noted last, and where (in bytes).
    std::string Error() const { return std::string(error_) + " at offset " + std::to_string(at_); }
    /// Notes what is wrong here.
    /// @return false
    bool Fail(const char* error) {
        error_ = error;
        return false;
    }
    std::string_view Rest() const { return {text_.data() + at_, text_.size() - at_}; }

    // These three note nothing: what they name may be missing, and is then not taken in part.
    bool Take(std::string_view literal);
    bool TakeBlanks();
    bool TakeBlanksAnd(std::string_view literal);

    bool TakeEquals();
    /// @param value  what stands between the quotes, not yet looked at
    bool TakeQuoted(std::string_view& value);
    /// The same for the value of an attribute, looked at.
    bool TakeQuotedData();
    bool TakeName(std::string_view& name);
    bool TakeCharacters(std::size_t size);
    bool TakeCharactersUntil(std::string_view end);
    /// Text of an element, or the value of an attribute: characters and references.
    bool TakeData(std::size_t size);

private:
    void SkipLetters();
    void SkipPlain(std::size_t end);
    bool TakeCharacter();
    bool TakeReference();

    const std::string_view text_;
    std::size_t at_ = 0;
    const char* error_ = "";
};
