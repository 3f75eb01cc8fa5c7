// SPDX-License-Identifier: Apache-2.0
#include "service/config/Printable.h"

#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/stringbuffer.h>

namespace {

constexpr unsigned int kFirstPrintable = 0x20;
constexpr unsigned int kDelete = 0x7F;
constexpr unsigned int kLastControl = 0x9F;  // of those beyond ASCII, which terminals obey as well

bool IsControl(unsigned int character) {
    return character < kFirstPrintable || (character >= kDelete && character <= kLastControl);
}

}  // namespace

std::string Printable(std::string_view text, std::size_t longest) {
    std::string line;
    while (!text.empty() && line.size() < longest) {
        rapidjson::MemoryStream stream(text.data(), text.size());
        unsigned int character = 0;
        const bool isValid = rapidjson::UTF8<>::Decode(stream, &character) && stream.Tell() <= text.size();
        const std::size_t length = isValid ? stream.Tell() : 1;
        if (!isValid) {
            line += '?';
        } else if (IsControl(character)) {
            line += character == '\t' ? ' ' : '?';
        } else if (line.size() + length <= longest) {
            line += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return line;
}
