// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The argument record that the update manager hands over with its events: a fixed header of 26 bytes (little-endian),
/// then NUL-terminated texts.
///
/// | offset | width | meaning |
/// |--------|-------|---------|
/// | 0      | 2     | length of the record in bytes |
/// | 2      | 2     | 1 |
/// | 4      | 4     | error code |
/// | 25     | 1     | number of arguments |
/// | 26     |       | the arguments |
///
/// Length and count come from outside: whatever they claim, only bytes of the record are read.
class CLogMsgArguments {
public:
    static constexpr std::size_t kHeaderSize = 26;

    /// A record of error code 0 without arguments.
    CLogMsgArguments();

    /// @param record  taken as it is, of any length
    explicit CLogMsgArguments(std::vector<unsigned char> record);

    /// False for a record that is shorter than its header; it has no error code and no arguments.
    bool IsComplete() const { return record_.size() >= kHeaderSize; }
    /// The record as it is handed over.
    const std::vector<unsigned char>& Bytes() const { return record_; }
    std::uint32_t ErrorCode() const;

    /// The arguments, at most as many as counted and as fit the stated length; a last one without its NUL runs to the
    /// end.
    std::vector<std::string> Arguments() const;

private:
    std::vector<unsigned char> record_;
};

/// Puts numbered arguments into an update manager's message template: "%1" is the first argument, "%%" a percent sign.
/// The number of an argument that does not exist is written back, and so is a "%" that no digit follows. A number
/// beyond the range of int reads as the largest int.
std::string FormatMessageTemplate(const std::string& messageTemplate, const std::vector<std::string>& arguments);
