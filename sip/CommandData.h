// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sip/RapidJsonUtil.h"

/// Reads the data of a command ("DA"), which may be a number, a boolean, a string, an array of strings or of numbers,
/// raw bytes ({"RAW": [...]}) or a structured object. A view: the value must outlive it.
class CCommandData {
public:
    using value = CRapidJsonUtil::value;

    /// @param data  null reads like a JSON null: no data
    explicit CCommandData(const value* data) : data_(data) {}

    /// The bits of a JSON number: a floating-point number is truncated towards zero, and reads as 0 outside of the
    /// 64-bit range. `number` must be a number.
    static std::uint64_t NumberBits(const value& number);

    /// The bits of a number in text: hexadecimal after "0x", octal after "0", else decimal with an optional sign; read
    /// up to the first character that does not belong to it. Rubbish reads as 0, too large a number as 2^64 - 1.
    static std::uint64_t TextBits(const value& text);

    bool IsStruct() const;

    // The results of these are described at the operations of SipJson that use them.
    unsigned int Size() const;
    bool ToUInt(unsigned int& out) const;
    bool ToText(std::string& out, unsigned long max) const;
    bool ToBytes(std::vector<unsigned char>& out) const;

private:
    enum class Kind { None, Integer, Boolean, Text, TextList, NumberList, Raw };

    Kind GetKind() const;
    const value* RawArray() const;
    template <typename Bytes>
    bool AppendRaw(Bytes& out) const;

    const value* data_;
};
