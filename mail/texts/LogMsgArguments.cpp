// SPDX-License-Identifier: Apache-2.0
#include "mail/texts/LogMsgArguments.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace {

constexpr std::size_t kErrorCodeAt = 4;
constexpr std::size_t kCountAt = 25;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Reads the digits at `position` and moves it behind them.
int TakeNumber(const std::string& text, std::size_t& position) {
    constexpr int kMax = std::numeric_limits<int>::max();
    int number = 0;
    for (; position < text.size() && IsDigit(text[position]); ++position) {
        const int digit = text[position] - '0';
        number = number > (kMax - digit) / 10 ? kMax : number * 10 + digit;
    }
    return number;
}

}  // namespace

CLogMsgArguments::CLogMsgArguments() : record_(kHeaderSize) {
    record_[0] = kHeaderSize;
    record_[2] = 1;
}

CLogMsgArguments::CLogMsgArguments(std::vector<unsigned char> record) : record_(std::move(record)) {}

std::uint32_t CLogMsgArguments::ErrorCode() const {
    if (!IsComplete()) {
        return 0;
    }
    std::uint32_t code = 0;
    for (std::size_t i = 0; i < sizeof code; ++i) {
        code |= std::uint32_t{record_[kErrorCodeAt + i]} << (8 * i);
    }
    return code;
}

std::vector<std::string> CLogMsgArguments::Arguments() const {
    std::vector<std::string> arguments;
    if (!IsComplete()) {
        return arguments;
    }
    const std::size_t statedLength = record_[0] + std::size_t{record_[1]} * 256;
    const std::size_t length = std::min(statedLength, record_.size());
    const unsigned count = record_[kCountAt];
    for (std::size_t at = kHeaderSize; at < length && arguments.size() < count;) {
        const auto begin = record_.begin() + static_cast<std::ptrdiff_t>(at);
        const auto end = std::find(begin, record_.begin() + static_cast<std::ptrdiff_t>(length), 0);
        arguments.emplace_back(begin, end);
        at += arguments.back().size() + 1;
    }
    return arguments;
}

std::string FormatMessageTemplate(const std::string& messageTemplate, const std::vector<std::string>& arguments) {
    std::string message;
    for (std::size_t at = 0; at < messageTemplate.size();) {
        const char c = messageTemplate[at++];
        if (c != '%') {
            message += c;
        } else if (at < messageTemplate.size() && messageTemplate[at] == '%') {
            message += '%';
            ++at;
        } else if (at < messageTemplate.size() && IsDigit(messageTemplate[at])) {
            const int number = TakeNumber(messageTemplate, at);
            if (number >= 1 && static_cast<std::size_t>(number) <= arguments.size()) {
                message += arguments[static_cast<std::size_t>(number) - 1];
            } else {
                message += '%' + std::to_string(number);
            }
        } else {
            message += '%';
        }
    }
    return message;
}
