#include "xml/XmlText.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace {

/// Reads the UTF-8 sequence at the start of a text that is not empty.
/// @return its length in bytes; 0 when it is cut off, overlong, a surrogate or past U+10FFFF
std::size_t ReadUtf8(std::string_view text, std::uint32_t& character) {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80) {
        character = lead;
        return 1;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return 0;
    }
    constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    character = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        character = character << 6 | (next & 0x3FU);
    }
    const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
    return character < kSmallest[length] || character > 0x10FFFF || isSurrogate ? 0 : length;
}

bool IsXmlCharacter(std::uint32_t character) {
    if (character < 0x20) {
        return character == '\t' || character == '\n' || character == '\r';
    }
    return character != 0xFFFE && character != 0xFFFF;
}

/// The reference that stands for a character at a place; null when it stands for itself.
const char* ReferenceOf(std::uint32_t character, XmlPlace place) {
    if (place == XmlPlace::Verbatim) {
        return nullptr;
    }
    const bool isAttribute = place == XmlPlace::Attribute;
    switch (character) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '\r':
            return "&#13;";
        case '"':
            return isAttribute ? "&quot;" : nullptr;
        case '\'':
            return isAttribute ? "&apos;" : nullptr;
        case '\n':
            return isAttribute ? "&#10;" : nullptr;
        case '\t':
            return isAttribute ? "&#9;" : nullptr;
        default:
            return nullptr;
    }
}

}  // namespace

std::string ToXml(std::string_view text, XmlPlace place) {
    std::string xml;
    xml.reserve(text.size());
    while (!text.empty()) {
        std::uint32_t character = 0;
        const std::size_t length = ReadUtf8(text, character);
        if (length != 0 && IsXmlCharacter(character)) {
            const char* reference = ReferenceOf(character, place);
            xml.append(reference != nullptr ? std::string_view(reference) : text.substr(0, length));
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return xml;
}

bool IsUtf8(std::string_view text) {
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    const auto* const end = text.data() + text.size();
    for (const auto* at = text.data(); (at = std::find_if_not(at, end, isAscii)) != end;) {
        std::uint32_t character = 0;
        const std::size_t length = ReadUtf8({at, static_cast<std::size_t>(end - at)}, character);
        if (length == 0) {
            return false;
        }
        at += length;
    }
    return true;
}
