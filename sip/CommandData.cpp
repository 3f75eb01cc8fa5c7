// SPDX-License-Identifier: Apache-2.0
#include "sip/CommandData.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

namespace {

using value = CCommandData::value;

std::string_view View(const value& text) {
    return {text.GetString(), text.GetStringLength()};
}

bool IsInteger(const value& v) {
    return v.IsUint64() || v.IsInt64();
}

bool IsByte(const value& v) {
    return v.IsUint() && v.GetUint() <= 0xFF;
}

/// Bytes that an array element takes: the smallest of 1, 2, 4 and 8 that holds it. Negative numbers take 8, and so do
/// floating-point numbers that no integer holds, although they read as 0.
unsigned int Width(const value& number) {
    if (number.IsDouble() && !(number.GetDouble() > -1 && number.GetDouble() < 0x1p64)) {
        return 8;
    }
    const std::uint64_t bits = CCommandData::NumberBits(number);
    if (bits <= 0xFF) {
        return 1;
    }
    if (bits <= 0xFFFF) {
        return 2;
    }
    return bits <= 0xFFFFFFFF ? 4 : 8;
}

void AppendLittleEndian(std::vector<unsigned char>& out, std::uint64_t bits, unsigned int width) {
    for (unsigned int i = 0; i < width; ++i) {
        out.push_back(static_cast<unsigned char>(bits >> (8 * i)));
    }
}

void AppendTerminated(std::vector<unsigned char>& out, const value& text) {
    const std::string_view view = View(text);
    out.insert(out.end(), view.begin(), view.end());
    out.push_back(0);
}

/// The beginning of `text`, at most `max` bytes, that does not end inside a UTF-8 sequence.
std::string_view Cut(std::string_view text, unsigned long max) {
    if (text.size() <= max) {
        return text;
    }
    const auto continues = [&](std::size_t at) { return (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80; };
    std::size_t end = max;
    while (end > 0 && max - end < 4 && continues(end)) {
        --end;
    }
    return text.substr(0, continues(end) ? max : end);  // more than 3 such bytes in a row are no UTF-8
}

}  // namespace

std::uint64_t CCommandData::NumberBits(const value& number) {
    if (number.IsUint64()) {
        return number.GetUint64();
    }
    if (number.IsInt64()) {
        return static_cast<std::uint64_t>(number.GetInt64());
    }
    const double d = number.GetDouble();
    if (d >= -0x1p63 && d < 0x1p63) {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(d));
    }
    return d >= 0x1p63 && d < 0x1p64 ? static_cast<std::uint64_t>(d) : 0;
}

std::uint64_t CCommandData::TextBits(const value& text) {
    std::string_view digits = View(text);
    int base = 10;
    bool negative = false;
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        base = 16;
        digits.remove_prefix(2);
    } else if (digits.size() >= 2 && digits.front() == '0') {
        base = 8;
        digits.remove_prefix(1);
    } else {
        digits.remove_prefix(std::min(digits.find_first_not_of(" \t\n\v\f\r"), digits.size()));
        negative = digits.starts_with('-');
        digits.remove_prefix(negative || digits.starts_with('+') ? 1 : 0);
    }
    std::uint64_t bits = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), bits, base);
    if (error == std::errc::result_out_of_range) {
        return std::numeric_limits<std::uint64_t>::max();
    }
    return negative ? 0 - bits : bits;
}

const value* CCommandData::RawArray() const {
    const value* raw = data_ != nullptr ? CRapidJsonUtil::Find(*data_, "RAW") : nullptr;
    return raw != nullptr && raw->IsArray() ? raw : nullptr;
}

template <typename Bytes>
bool CCommandData::AppendRaw(Bytes& out) const {
    const value* raw = RawArray();
    if (raw == nullptr || !std::all_of(raw->Begin(), raw->End(), IsByte)) {
        return false;
    }
    for (const value& byte : raw->GetArray()) {
        out.push_back(static_cast<typename Bytes::value_type>(byte.GetUint()));
    }
    return true;
}

bool CCommandData::IsStruct() const {
    return data_ != nullptr && data_->IsObject() && RawArray() == nullptr;
}

CCommandData::Kind CCommandData::GetKind() const {
    if (data_ == nullptr) {
        return Kind::None;
    }
    if (data_->IsArray()) {
        const auto all = [&](auto test) { return std::all_of(data_->Begin(), data_->End(), test); };
        if (data_->Empty()) {
            return Kind::None;
        }
        if (all([](const value& v) { return v.IsString(); })) {
            return Kind::TextList;
        }
        return all([](const value& v) { return v.IsNumber(); }) ? Kind::NumberList : Kind::None;
    }
    if (data_->IsObject()) {
        return RawArray() != nullptr ? Kind::Raw : Kind::None;
    }
    if (data_->IsString()) {
        return Kind::Text;
    }
    if (data_->IsBool()) {
        return Kind::Boolean;
    }
    return IsInteger(*data_) ? Kind::Integer : Kind::None;
}

unsigned int CCommandData::Size() const {
    std::uint64_t size = 0;
    switch (GetKind()) {
        case Kind::None:
            break;
        case Kind::Integer:
            size = sizeof(std::uint64_t);
            break;
        case Kind::Boolean:
            size = 1;
            break;
        case Kind::Text:
            size = std::uint64_t{data_->GetStringLength()} + 1;
            break;
        case Kind::TextList:
            size = 1;
            for (const value& text : data_->GetArray()) {
                size += std::uint64_t{text.GetStringLength()} + 1;
            }
            break;
        case Kind::NumberList:
            for (const value& number : data_->GetArray()) {
                size += Width(number);
            }
            break;
        case Kind::Raw:
            size = RawArray()->Size();
    }
    return static_cast<unsigned int>(std::min<std::uint64_t>(size, std::numeric_limits<unsigned int>::max()));
}

bool CCommandData::ToUInt(unsigned int& out) const {
    if (data_ == nullptr) {
        return false;
    }
    if (data_->IsBool() || data_->IsNumber()) {
        out = data_->IsBool() ? unsigned{data_->GetBool()} : static_cast<unsigned int>(NumberBits(*data_));
        return true;
    }
    const value* raw = RawArray();
    if (raw == nullptr || raw->Empty() || raw->Size() > sizeof(out)) {
        return false;
    }
    unsigned int number = 0;
    for (rapidjson::SizeType i = 0; i < raw->Size(); ++i) {
        if (!IsByte((*raw)[i])) {
            return false;
        }
        number |= (*raw)[i].GetUint() << (8 * i);
    }
    out = number;
    return true;
}

bool CCommandData::ToText(std::string& out, unsigned long max) const {
    if (data_ != nullptr && data_->IsString()) {
        out = Cut(View(*data_), max);
        return true;
    }
    std::string text;
    if (!AppendRaw(text)) {
        return false;
    }
    text.resize(std::min(text.find('\0'), text.size()));
    out = Cut(text, max);
    return true;
}

bool CCommandData::ToBytes(std::vector<unsigned char>& out) const {
    std::vector<unsigned char> bytes;
    switch (GetKind()) {
        case Kind::Integer:
            AppendLittleEndian(bytes, NumberBits(*data_), sizeof(std::uint64_t));
            break;
        case Kind::Boolean:
            bytes.push_back(data_->GetBool() ? 1 : 0);
            break;
        case Kind::Text:
            AppendTerminated(bytes, *data_);
            break;
        case Kind::TextList:
            for (const value& text : data_->GetArray()) {
                AppendTerminated(bytes, text);
            }
            bytes.push_back(0);
            break;
        case Kind::NumberList:
            for (const value& number : data_->GetArray()) {
                AppendLittleEndian(bytes, NumberBits(number), Width(number));
            }
            break;
        case Kind::Raw:
            if (!AppendRaw(bytes)) {
                return false;
            }
            break;
        case Kind::None:
            return false;
    }
    out = std::move(bytes);
    return true;
}
