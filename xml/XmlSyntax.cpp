// SPDX-License-Identifier: Apache-2.0
#include "xml/XmlSyntax.h"

#include <algorithm>
#include <initializer_list>
#include <vector>

#include "platform/IgnoreCase.h"
#include "xml/XmlScanner.h"

namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kPublicIdMarks = " \r\n-'()+,./:=?;!*#@$_%";

bool HoldsOnly(std::string_view text, std::initializer_list<std::string_view> sets) {
    return std::ranges::all_of(text, [&sets](char c) {
        return std::ranges::any_of(sets, [c](std::string_view set) { return set.find(c) != std::string_view::npos; });
    });
}

bool IsVersion(std::string_view text) {
    return text.starts_with("1.") && text.size() > 2 && HoldsOnly(text.substr(2), {kDigits});
}

bool IsEncodingName(std::string_view text) {
    return !text.empty() && HoldsOnly(text.substr(0, 1), {kLetters}) && HoldsOnly(text, {kLetters, kDigits, "._-"});
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

/// The document and its parts, in the order of the grammar.
class CXmlGrammar : private CXmlScanner {
public:
    using CXmlScanner::CXmlScanner;
    using CXmlScanner::Error;

    bool TakeDocument() {
        return TakeDeclaration() && TakeMisc() && TakeDocType() && TakeMisc() && TakeTree() && TakeMisc() &&
               (Rest().empty() || Fail("Text or an element behind the root element"));
    }

private:
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

    std::vector<std::string_view> open_;  // names of the elements around the current place
};

bool CXmlGrammar::TakeDeclaration() {
    if (Rest().find_first_of(kXmlBlanks) != 5 || !Take("<?xml")) {
        return true;
    }
    for (const DeclarationPart& part : kDeclarationParts) {
        std::string_view value;
        if (!TakeBlanksAnd(part.name)) {
            if (part.isNeeded) {
                TakeBlanks();
                return Fail("The declaration has no version");
            }
        } else if (!TakeEquals() || !TakeQuoted(value) || !part.isValue(value)) {
            return Fail("The declaration is damaged");
        }
    }
    TakeBlanks();
    return Take("?>") || Fail("The declaration is damaged");
}

bool CXmlGrammar::TakeDocType() {
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
bool CXmlGrammar::TakeExternalId() {
    std::string_view value;
    if (Take("PUBLIC")) {
        if (!TakeBlanks() || !TakeQuoted(value) || !HoldsOnly(value, {kLetters, kDigits, kPublicIdMarks})) {
            return false;
        }
    } else if (!Take("SYSTEM")) {
        return true;
    }
    return TakeBlanks() && TakeQuoted(value) && CXmlScanner(value).TakeCharacters(value.size());
}

/// Comments, instructions and blanks.
bool CXmlGrammar::TakeMisc() {
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

bool CXmlGrammar::TakeComment() {
    return Take("<!--") && TakeCharactersUntil("--") && (Take(">") || Fail("\"--\" in a comment"));
}

bool CXmlGrammar::TakeInstruction() {
    std::string_view target;
    if (!Take("<?") || !TakeName(target)) {
        return false;
    }
    if (EqualIgnoringCase(target, "xml")) {
        return Fail("A declaration that is not at the start");
    }
    return Take("?>") || (TakeBlanks() ? TakeCharactersUntil("?>") : Fail("An instruction is damaged"));
}

bool CXmlGrammar::TakeTree() {
    if (!Rest().starts_with('<')) {
        return Fail("No root element");
    }
    bool isFine = TakeStartTag();
    while (isFine && !open_.empty()) {
        isFine = TakeContent();
    }
    return isFine;
}

bool CXmlGrammar::TakeContent() {
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

bool CXmlGrammar::TakeText() {
    const std::string_view text = Rest().substr(0, Rest().find('<'));
    if (text.size() == Rest().size()) {
        return Fail("An element is not closed");
    }
    if (text.find("]]>") != std::string_view::npos) {
        return Fail("\"]]>\" in a text");
    }
    return TakeData(text.size());
}

bool CXmlGrammar::TakeStartTag() {
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
    std::ranges::sort(attributes);
    if (std::adjacent_find(attributes.begin(), attributes.end()) != attributes.end()) {
        return Fail("An attribute twice");
    }
    if (Take(">")) {
        open_.push_back(name);
        return true;
    }
    return Take("/>") || Fail("A tag is damaged");
}

bool CXmlGrammar::TakeAttribute(std::vector<std::string_view>& names) {
    return TakeName(names.emplace_back()) && TakeEquals() && TakeQuotedData();
}

bool CXmlGrammar::TakeEndTag() {
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
    CXmlGrammar grammar(text);
    return grammar.TakeDocument() ? std::string() : grammar.Error();
}
