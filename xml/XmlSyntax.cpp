#include "xml/XmlSyntax.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <strings.h>
#include <vector>

#include "xml/Utf8.h"

namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kPublicIdMarks = " \r\n-'()+,./:=?;!*#@$_%";

struct NameRange {
    std::uint32_t first;
    std::uint32_t last;
    bool mayStart;
};

constexpr NameRange kNameRanges[] = {{'a', 'z', true},       {'A', 'Z', true},       {'_', '_', true},
                                     {':', ':', true},       {'0', '9', false},      {'-', '.', false},
                                     {0xB7, 0xB7, false},    {0xC0, 0xD6, true},     {0xD8, 0xF6, true},
                                     {0xF8, 0x2FF, true},    {0x300, 0x36F, false},  {0x370, 0x37D, true},
                                     {0x37F, 0x1FFF, true},  {0x200C, 0x200D, true}, {0x203F, 0x2040, false},
                                     {0x2070, 0x218F, true}, {0x2C00, 0x2FEF, true}, {0x3001, 0xD7FF, true},
                                     {0xF900, 0xFDCF, true}, {0xFDF0, 0xFFFD, true}, {0x10000, 0xEFFFF, true}};

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool HoldsOnly(std::string_view text, std::string_view first, std::string_view second = {}) {
    return std::all_of(text.begin(), text.end(), [&](char c) {
        return first.find(c) != std::string_view::npos || second.find(c) != std::string_view::npos;
    });
}

bool IsVersion(std::string_view text) {
    return text.starts_with("1.") && text.size() > 2 && HoldsOnly(text.substr(2), kDigits);
}

bool IsEncodingName(std::string_view text) {
    return HoldsOnly(text.substr(0, 1), kLetters) && !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
               return HoldsOnly({&c, 1}, kLetters, kDigits) || HoldsOnly({&c, 1}, "._-");
           });
}

bool IsYesOrNo(std::string_view text) {
    return text == "yes" || text == "no";
}

/// The attributes of a declaration, in their order.
struct DeclarationPart {
    std::string_view name;
    bool isNeeded;
    bool (*isValue)(std::string_view);
};

constexpr DeclarationPart kDeclarationParts[] = {
    {"version", true, IsVersion}, {"encoding", false, IsEncodingName}, {"standalone", false, IsYesOrNo}};

/// Walks through the text once. Each Take... goes behind what it names and returns true, or notes what is wrong.
class CXmlScanner {
public:
    explicit CXmlScanner(std::string_view text) : text_(text) {}

    bool TakeDocument() {
        return TakeDeclaration() && TakeMisc() && TakeDocType() && TakeMisc() && TakeTree() && TakeMisc() &&
               (Rest().empty() || Fail("Text or an element behind the root element"));
    }
    std::string Error() const { return std::string(error_) + " at offset " + std::to_string(at_); }

private:
    bool Fail(const char* error) {
        error_ = error;
        return false;
    }
    std::string_view Rest() const { return text_.substr(at_); }
    bool Take(std::string_view literal) {
        const bool isThere = Rest().starts_with(literal);
        at_ += isThere ? literal.size() : 0;
        return isThere;
    }
    bool TakeBlanks();
    bool TakeEquals();
    bool TakeQuoted(std::string_view& value);
    bool TakeName(std::string_view& name);
    void SkipPlain(std::size_t end);
    bool TakeCharacter();
    bool TakeCharacters(std::size_t end);
    bool TakeCharactersUntil(std::string_view end);
    bool TakeReference();
    bool TakeData(std::size_t end);

    bool TakeDeclaration();
    bool TakeDocType();
    bool TakeExternalId();
    bool TakeMisc();
    bool TakeComment();
    bool TakeInstruction();
    bool TakeTree();
    bool TakeContent();
    bool TakeText();
    bool TakeStartTag();
    bool TakeAttribute(std::vector<std::string_view>& names);
    bool TakeEndTag();

    const std::string_view text_;
    std::size_t at_ = 0;
    const char* error_ = "";
    std::vector<std::string_view> open_;  // names of the elements around the current place
};

/// @return true when there was one
bool CXmlScanner::TakeBlanks() {
    const std::size_t before = at_;
    while (at_ < text_.size() && IsBlank(text_[at_])) {
        ++at_;
    }
    return at_ > before;
}

bool CXmlScanner::TakeEquals() {
    TakeBlanks();
    const bool isThere = Take("=");
    TakeBlanks();
    return isThere || Fail("\"=\" is missing");
}

/// @param value  what stands between the quotes, not yet looked at; the place is then the first quote
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

bool CXmlScanner::TakeName(std::string_view& name) {
    const std::size_t first = at_;
    while (at_ < text_.size()) {
        std::uint32_t character = 0;
        const std::size_t length = ReadUtf8(Rest(), character);
        const auto* const range =
            std::find_if(std::begin(kNameRanges), std::end(kNameRanges), [character](const NameRange& candidate) {
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
    while (at_ < end && ((text[at_] >= ' ' && text[at_] != '&' && text[at_] != '<') || text[at_] == '\n')) {
        ++at_;
    }
}

bool CXmlScanner::TakeCharacter() {
    std::uint32_t character = 0;
    const std::size_t length = ReadUtf8(Rest(), character);
    if (length == 0 || !IsXmlCharacter(character)) {
        return Fail("Not a character of XML");
    }
    at_ += length;
    return true;
}

bool CXmlScanner::TakeCharacters(std::size_t end) {
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
    return TakeCharacters(found) && Take(end);
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
    std::uint32_t character = 0;
    const auto result = std::from_chars(digits, text_.data() + text_.size(), character, isHex ? 16 : 10);
    if (result.ec != std::errc() || !IsXmlCharacter(character) || result.ptr == text_.data() + text_.size() ||
        *result.ptr != ';') {
        return Fail("Not a character reference");
    }
    at_ = static_cast<std::size_t>(result.ptr - text_.data()) + 1;
    return true;
}

/// Text of an element, or the value of an attribute.
bool CXmlScanner::TakeData(std::size_t end) {
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

bool CXmlScanner::TakeDeclaration() {
    if (!Rest().starts_with("<?xml") || text_.size() == 5 || !IsBlank(text_[5])) {
        return true;
    }
    Take("<?xml");
    for (const DeclarationPart& part : kDeclarationParts) {
        const std::size_t before = at_;
        if (TakeBlanks() && Take(part.name)) {
            std::string_view value;
            if (!TakeEquals() || !TakeQuoted(value) || !part.isValue(value)) {
                return Fail("The declaration is damaged");
            }
        } else if (part.isNeeded) {
            return Fail("The declaration has no version");
        } else {
            at_ = before;
        }
    }
    TakeBlanks();
    return Take("?>") || Fail("The declaration is damaged");
}

bool CXmlScanner::TakeDocType() {
    if (!Take("<!DOCTYPE")) {
        return true;
    }
    std::string_view name;
    if (!TakeBlanks() || !TakeName(name)) {
        return Fail("The document type is damaged");
    }
    if (TakeBlanks() && !TakeExternalId()) {
        return Fail("The document type is damaged");
    }
    TakeBlanks();
    return Take(">") || Fail("The document type is damaged, or declares something");
}

/// Also true when there is none.
bool CXmlScanner::TakeExternalId() {
    std::string_view value;
    if (Take("PUBLIC")) {
        const bool isPublicId =
            TakeBlanks() && TakeQuoted(value) && std::all_of(value.begin(), value.end(), [](char c) {
                return HoldsOnly({&c, 1}, kLetters, kDigits) || HoldsOnly({&c, 1}, kPublicIdMarks);
            });
        if (!isPublicId) {
            return false;
        }
    } else if (!Take("SYSTEM")) {
        return true;
    }
    return TakeBlanks() && TakeQuoted(value) && CXmlScanner(value).TakeCharacters(value.size());
}

/// Comments, instructions and blanks.
bool CXmlScanner::TakeMisc() {
    for (;;) {
        TakeBlanks();
        if (Rest().starts_with("<!--")) {
            if (!TakeComment()) {
                return false;
            }
        } else if (Rest().starts_with("<?")) {
            if (!TakeInstruction()) {
                return false;
            }
        } else {
            return true;
        }
    }
}

bool CXmlScanner::TakeComment() {
    return Take("<!--") && TakeCharactersUntil("--") && (Take(">") || Fail("\"--\" in a comment"));
}

bool CXmlScanner::TakeInstruction() {
    std::string_view target;
    if (!Take("<?") || !TakeName(target)) {
        return false;
    }
    if (target.size() == 3 && ::strncasecmp(target.data(), "xml", 3) == 0) {
        return Fail("A declaration that is not at the start");
    }
    return Take("?>") || (TakeBlanks() ? TakeCharactersUntil("?>") : Fail("An instruction is damaged"));
}

bool CXmlScanner::TakeTree() {
    if (!Rest().starts_with('<')) {
        return Fail("No root element");
    }
    bool isFine = TakeStartTag();
    while (isFine && !open_.empty()) {
        isFine = TakeContent();
    }
    return isFine;
}

bool CXmlScanner::TakeContent() {
    if (!Rest().starts_with('<')) {
        return TakeText();
    }
    if (Rest().starts_with("</")) {
        return TakeEndTag();
    }
    if (Rest().starts_with("<!--")) {
        return TakeComment();
    }
    if (Rest().starts_with("<?")) {
        return TakeInstruction();
    }
    return Take("<![CDATA[") ? TakeCharactersUntil("]]>") : TakeStartTag();
}

bool CXmlScanner::TakeText() {
    const std::size_t end = text_.find('<', at_);
    if (end == std::string_view::npos) {
        return Fail("An element is not closed");
    }
    if (text_.substr(at_, end - at_).find("]]>") != std::string_view::npos) {
        return Fail("\"]]>\" in a text");
    }
    return TakeData(end);
}

bool CXmlScanner::TakeStartTag() {
    std::string_view name;
    if (!Take("<") || !TakeName(name)) {
        return false;
    }
    if (open_.size() == kMaxXmlDepth) {
        return Fail("Nested too deep");
    }
    std::vector<std::string_view> attributes;
    bool isFollowed = TakeBlanks();
    while (!Rest().starts_with('>') && !Rest().starts_with('/')) {
        if (!isFollowed || !TakeAttribute(attributes)) {
            return isFollowed ? false : Fail("A tag is damaged");
        }
        isFollowed = TakeBlanks();
    }
    std::sort(attributes.begin(), attributes.end());
    if (std::adjacent_find(attributes.begin(), attributes.end()) != attributes.end()) {
        return Fail("An attribute twice");
    }
    if (Take(">")) {
        open_.push_back(name);
        return true;
    }
    return Take("/>") || Fail("A tag is damaged");
}

bool CXmlScanner::TakeAttribute(std::vector<std::string_view>& names) {
    std::string_view value;
    if (!TakeName(names.emplace_back()) || !TakeEquals()) {
        return false;
    }
    const std::size_t quote = at_;
    if (!TakeQuoted(value)) {
        return false;
    }
    at_ = quote + 1;
    return TakeData(at_ + value.size()) && Take(text_.substr(quote, 1));
}

bool CXmlScanner::TakeEndTag() {
    std::string_view name;
    if (!Take("</") || !TakeName(name)) {
        return false;
    }
    if (name != open_.back()) {
        return Fail("The end of another element");
    }
    open_.pop_back();
    TakeBlanks();
    return Take(">") || Fail("A tag is damaged");
}

}  // namespace

std::string FindXmlError(std::string_view text) {
    CXmlScanner scanner(text);
    return scanner.TakeDocument() ? std::string() : scanner.Error();
}

bool IsXmlCharacter(std::uint32_t character) {
    if (character < 0x20) {
        return character == '\t' || character == '\n' || character == '\r';
    }
    return character < 0xD800 || (character >= 0xE000 && character < 0xFFFE) ||
           (character >= 0x10000 && character <= 0x10FFFF);
}
