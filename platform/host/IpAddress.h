// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>
#include <vector>

/// An IPv4 or IPv6 address as bytes in network order. Four bytes make an IPv4 address, sixteen an IPv6 address, any
/// other number no address. Not safe for use by two threads at a time.
class CIPAddress {
public:
    CIPAddress() = default;
    explicit CIPAddress(std::vector<unsigned char> bytes) : bytes_(std::move(bytes)) {}

    void SetBytes(std::vector<unsigned char> bytes) { bytes_ = std::move(bytes); }
    const std::vector<unsigned char>& Bytes() const { return bytes_; }

    /// The text form, as in "10.0.0.5" or "fd00::5". Bytes that are no address leave the text of the last call, which
    /// is empty at first. The reference is good until the next call.
    const std::string& GetString();

private:
    std::vector<unsigned char> bytes_;
    std::string text_;
};
