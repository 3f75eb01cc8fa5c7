// SPDX-License-Identifier: Apache-2.0
#include "xml/XmlScanner.h"

#include <algorithm>
#include <charconv>

#include "xml/Utf8.h"

namespace {

struct NameRange {
    std::uint32_t first;
    std::uint32_t last;
    bool mayStart;
};

constexpr NameRange kNameRanges[] = {
    {'_', '_', true},        {':', ':', true},       {'0', '9', false},       {'-', '.', false},
    {0xB7, 0xB7, false},     {0xC0, 0xD6, true},     {0xD8, 0xF6, true},      {0xF8, 0x2FF, true},
    {0x300, 0x36F, false},   {0x370, 0x37D, true},   {0x37F, 0x1FFF, true},   {0x200C, 0x200D, true},
    {0x203F, 0x2040, false}, {0x2070, 0x218F, true}, {0x2C00, 0x2FEF, true},  {0x3001, 0xD7FF, true},
    {0xF900, 0xFDCF, true},  {0xFDF0, 0xFFFD, true}, {0x10000, 0xEFFFF, true}};

}  // namespace

bool CXmlScanner::Take(std::string_view literal) {
    const bool isThere = Rest().starts_with(literal);
    at_ += isThere ? literal.size() : 0;
    return isThere;
}

bool CXmlScanner::TakeBlanks() {
    const std::size_t before = at_;
    at_ = std::min(text_.find_first_not_of(kXmlBlanks, at_), text_.size());
    return at_ > before;
}

bool CXmlScanner::TakeBlanksAnd(std::string_view literal) {
    const std::size_t before = at_;
    const bool isThere = TakeBlanks() && Take(literal);
    at_ = isThere ? at_ : before;
    return isThere;
}

bool CXmlScanner::TakeEquals() {
    TakeBlanks();
    const bool isThere = Take("=");
    TakeBlanks();
    return isThere || Fail("\"=\" is missing");
}

bool CXmlScanner::TakeQuoted(std::string_view& value) {
    const bool isQuote = Rest().starts_with('"') || Rest().starts_with('\'');
    const std::size_t end = isQuote ? text_.find(text_[at_], at_ + 1) : std::string_view::npos;
    if (end == std::string_view::npos) {
        return Fail("A quote is missing");
    }
    value = text_.substr(at_ + 1, end - at_ - 1);
    at_ = end + 1;
    return true;
}

bool CXmlScanner::TakeQuotedData() {
    const std::size_t quote = at_;
    std::string_view value;
    if (!TakeQuoted(value)) {
        return false;
    }
    at_ = quote + 1;
    return TakeData(value.size()) && Take(text_.substr(quote, 1));
}

/// Goes over the letters of ASCII, of which nearly every name consists.
void CXmlScanner::SkipLetters() {
    const char* const text = text_.data();
    while (at_ < text_.size() && ((text[at_] >= 'a' && text[at_] <= 'z') || (text[at_] >= 'A' && text[at_] <= 'Z'))) {
        ++at_;
    }
}

bool CXmlScanner::TakeName(std::string_view& name) {
    const std::size_t first = at_;
    while (SkipLetters(), at_ < text_.size()) {
        std::uint32_t character{};
        const std::size_t length = ReadUtf8(Rest(), character);
        const auto* const range = std::ranges::find_if(kNameRanges, [character](const NameRange& candidate) {
            return character >= candidate.first && character <= candidate.last;
        });
        if (length == 0 || range == std::end(kNameRanges) || (at_ == first && !range->mayStart)) {
            break;
        }
        at_ += length;
    }
    name = text_.substr(first, at_ - first);
    return !name.empty() || Fail("A name is missing");
}

/// Goes over what needs no closer look, which is nearly everything.
void CXmlScanner::SkipPlain(std::size_t end) {
    const char* const text = text_.data();
    while (at_ < end && text[at_] >= ' ' && text[at_] != '&' && text[at_] != '<') {
        ++at_;
    }
}

bool CXmlScanner::TakeCharacter() {
    std::uint32_t character{};
    const std::size_t length = ReadUtf8(Rest(), character);
    if (length == 0 || !IsXmlCharacter(character)) {
        return Fail("Not a character of XML");
    }
    at_ += length;
    return true;
}

bool CXmlScanner::TakeCharacters(std::size_t size) {
    const std::size_t end = at_ + size;
    while (SkipPlain(end), at_ < end) {
        if (!TakeCharacter()) {
            return false;
        }
    }
    return true;
}

bool CXmlScanner::TakeCharactersUntil(std::string_view end) {
    const std::size_t found = text_.find(end, at_);
    if (found == std::string_view::npos) {
        return Fail("The end is missing of what begins");
    }
    return TakeCharacters(found - at_) && Take(end);
}

bool CXmlScanner::TakeReference() {
    for (const std::string_view known : {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"}) {
        if (Take(known)) {
            return true;
        }
    }
    if (!Rest().starts_with("&#")) {
        return Fail("Unknown entity");
    }
    const bool isHex = Rest().starts_with("&#x");
    const char* const digits = text_.data() + at_ + (isHex ? 3 : 2);
    std::uint32_t character{};
    const auto result = std::from_chars(digits, text_.data() + text_.size(), character, isHex ? 16 : 10);
    const auto end = static_cast<std::size_t>(result.ptr - text_.data());
    if (result.ec != std::errc() || !IsXmlCharacter(character) || !text_.substr(end).starts_with(';')) {
        return Fail("Not a character reference");
    }
    at_ = end + 1;
    return true;
}

bool CXmlScanner::TakeData(std::size_t size) {
    const std::size_t end = at_ + size;
    while (SkipPlain(end), at_ < end) {
        if (text_[at_] == '<') {
            return Fail("\"<\" in the value of an attribute");
        }
        if (!(text_[at_] == '&' ? TakeReference() : TakeCharacter())) {
            return false;
        }
    }
    return true;
}

bool IsXmlCharacter(std::uint32_t character) {
    if (character < 0x20) {
        return character == '\t' || character == '\n' || character == '\r';
    }
    return character < 0xD800 || (character >= 0xE000 && character < 0xFFFE) ||
           (character >= 0x10000 && character <= 0x10FFFF);
}
