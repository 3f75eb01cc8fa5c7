// SPDX-License-Identifier: Apache-2.0
#include "platform/host/IpAddress.h"

#include <arpa/inet.h>
#include <charconv>
#include <cstdio>
#include <iterator>

namespace {

constexpr std::size_t kIpv4Size = 4;
constexpr std::size_t kIpv6Size = 16;

/// All eight groups, for the case that the C library refuses to write the text.
std::string HexadecimalGroups(const std::vector<unsigned char>& bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        char group[sizeof "ffff"];
        const auto end = std::to_chars(std::begin(group), std::end(group), bytes[i] * 256U + bytes[i + 1], 16);
        text.append(i == 0 ? "" : ":").append(group, end.ptr);
    }
    return text;
}

}  // namespace

const std::string& CIPAddress::GetString() {
    if (bytes_.size() == kIpv4Size) {
        char text[INET_ADDRSTRLEN];
        std::snprintf(text, sizeof text, "%u.%u.%u.%u", bytes_[0], bytes_[1], bytes_[2], bytes_[3]);
        text_ = text;
    } else if (bytes_.size() == kIpv6Size) {
        char text[INET6_ADDRSTRLEN];
        const bool done = ::inet_ntop(AF_INET6, bytes_.data(), text, sizeof text) != nullptr;
        text_ = done ? std::string(text) : HexadecimalGroups(bytes_);
    }
    return text_;
}
