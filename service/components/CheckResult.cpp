// SPDX-License-Identifier: Apache-2.0
#include "service/components/CheckResult.h"

#include <rapidjson/encodings.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/stringbuffer.h>

namespace {

constexpr std::size_t kLongestLine = 1000;
constexpr unsigned int kFirstPrintable = 0x20;
constexpr unsigned int kDelete = 0x7F;
constexpr unsigned int kLastControl = 0x9F;  // of those beyond ASCII, which terminals obey as well

bool IsControl(unsigned int character) {
    return character < kFirstPrintable || (character >= kDelete && character <= kLastControl);
}

}  // namespace

ComponentStatus StatusOfExit(int exitStatus) {
    return exitStatus >= 0 && exitStatus <= 2 ? static_cast<ComponentStatus>(exitStatus + 1) : ComponentStatus::Unknown;
}

std::string FirstLine(std::string_view output) {
    output = output.substr(0, output.find('\n'));
    output = output.substr(0, output.find('|'));
    std::string line;
    while (!output.empty() && line.size() < kLongestLine) {
        rapidjson::MemoryStream stream(output.data(), output.size());
        unsigned int character = 0;
        const bool isValid = rapidjson::UTF8<>::Decode(stream, &character) && stream.Tell() <= output.size();
        const std::size_t length = isValid ? stream.Tell() : 1;
        if (!isValid) {
            line += '?';
        } else if (IsControl(character)) {
            line += character == '\t' ? ' ' : '?';
        } else if (line.size() + length <= kLongestLine) {
            line += output.substr(0, length);
        }
        output.remove_prefix(length);
    }
    line.resize(line.find_last_not_of(' ') + 1);
    return line;
}
