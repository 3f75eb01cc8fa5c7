// SPDX-License-Identifier: Apache-2.0
#include "xml/XmlEncoding.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/IgnoreCase.h"
#include "xml/Utf8.h"

namespace {

using namespace std::string_view_literals;

constexpr std::string_view kUtf8Names[] = {"", "UTF-8", "UTF8", "US-ASCII", "ASCII"};
constexpr std::string_view kLatin1Names[] = {"ISO-8859-1", "ISO8859-1", "ISO_8859-1", "Latin1", "Latin-1"};
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

/// How a file of wide characters begins.
struct WideForm {
    std::string_view start;
    std::size_t markSize;
    std::size_t width;  // bytes a unit
    bool isBigEndian;
};

// The longer ones first: each begins as one of the shorter does.
constexpr WideForm kWideForms[] = {
    {"\0\0\xFE\xFF"sv, 4, 4, true}, {"\xFF\xFE\0\0"sv, 4, 4, false}, {"\0\0\0<"sv, 0, 4, true},
    {"<\0\0\0"sv, 0, 4, false},     {"\xFE\xFF"sv, 2, 2, true},      {"\xFF\xFE"sv, 2, 2, false},
    {"\0<"sv, 0, 2, true},          {"<\0"sv, 0, 2, false},
};

bool IsOneOf(std::span<const std::string_view> names, std::string_view name) {
    return std::ranges::any_of(names, [name](std::string_view known) { return EqualIgnoringCase(known, name); });
}

/// What stands between the quotes behind "encoding" in the declaration. Whether that is one at all is not known here.
std::string_view NamedEncoding(std::string_view text) {
    const std::string_view declaration = text.starts_with("<?xml") ? text.substr(0, text.find("?>")) : ""sv;
    const std::size_t open = declaration.find_first_of("\"'", declaration.find("encoding"));
    if (open == std::string_view::npos) {
        return {};
    }
    const std::string_view name = declaration.substr(open + 1);
    return name.substr(0, name.find(declaration[open]));
}

std::uint32_t Unit(std::string_view bytes, bool isBigEndian) {
    std::uint32_t unit = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        unit = unit << 8 | static_cast<unsigned char>(bytes[isBigEndian ? i : bytes.size() - 1 - i]);
    }
    return unit;
}

const char* DecodeWide(std::string_view bytes, const WideForm& form, std::string& text) {
    std::uint32_t lead{};  // the first half of a pair, less its mark
    bool isPair = false;
    for (bytes.remove_prefix(form.markSize); bytes.size() >= form.width; bytes.remove_prefix(form.width)) {
        std::uint32_t character = Unit(bytes.substr(0, form.width), form.isBigEndian);
        if (isPair) {
            // What is no second half becomes no character either.
            character = character >> 10 == 0x37 ? 0x10000 + (lead << 10 | (character & 0x3FF)) : 0xD800;
            isPair = false;
        } else if (form.width == 2 && character >> 10 == 0x36) {
            lead = character & 0x3FF;
            isPair = true;
            continue;
        }
        if (!AppendUtf8(text, character)) {
            return "Not a character";
        }
    }
    return isPair || !bytes.empty() ? "Incomplete character" : nullptr;
}

}  // namespace

const char* DecodeXml(std::string_view bytes, std::string& text) {
    text.clear();
    for (const WideForm& form : kWideForms) {
        if (bytes.starts_with(form.start)) {
            return DecodeWide(bytes, form, text);
        }
    }
    const bool isMarked = bytes.starts_with(kUtf8Mark);
    bytes.remove_prefix(isMarked ? kUtf8Mark.size() : 0);
    const std::string_view name = NamedEncoding(bytes);
    const bool isLatin1 = IsOneOf(kLatin1Names, name);
    if (!isLatin1 && !IsOneOf(kUtf8Names, name)) {
        return "Unknown encoding";
    }
    if (isMarked || (!isLatin1 && IsUtf8(bytes))) {
        text = bytes;  // what is not UTF-8 behind the mark is found when it is parsed
        return nullptr;
    }
    for (const char c : bytes) {
        AppendUtf8(text, static_cast<unsigned char>(c));
    }
    return nullptr;
}
