// SPDX-License-Identifier: Apache-2.0
#include "xml/XmlText.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "xml/Utf8.h"
#include "xml/XmlScanner.h"

namespace {

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

/// What stands for itself everywhere, which is nearly all of a text.
constexpr std::string_view kPlain = " etaoinshrdlucmfwypvbgkjqxz./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ@:-_";

}  // namespace

std::string ToXml(std::string_view text, XmlPlace place) {
    std::string xml;
    for (;;) {
        const std::size_t plain = std::min(text.find_first_not_of(kPlain), text.size());
        xml.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) {
            return xml;
        }
        std::uint32_t character{};
        const std::size_t length = ReadUtf8(text, character);
        if (length != 0 && IsXmlCharacter(character)) {
            const char* reference = ReferenceOf(character, place);
            xml.append(reference != nullptr ? std::string_view(reference) : text.substr(0, length));
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
}
