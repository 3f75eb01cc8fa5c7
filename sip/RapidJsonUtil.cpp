// SPDX-License-Identifier: Apache-2.0
#include "sip/RapidJsonUtil.h"

#include <algorithm>
#include <cmath>

#include "sip/ValueBuilder.h"

namespace {

using value = CRapidJsonUtil::value;

/// Sends `from` to a writer or builder, down to `levels` of nesting.
/// @return false when something was replaced by null
template <typename Handler>
bool Send(const value& from, Handler& to, int levels) {
    if (from.IsUint()) {  // most of a message: a short way
        to.Uint(from.GetUint());
        return true;
    }
    const bool container = from.IsObject() || from.IsArray();
    const bool notFinite = from.IsDouble() && !std::isfinite(from.GetDouble());
    if ((container && levels == 0) || notFinite) {
        to.Null();
        return false;
    }
    bool whole = true;
    if (from.IsObject()) {
        to.StartObject();
        for (const auto& member : from.GetObject()) {
            to.Key(member.name.GetString(), member.name.GetStringLength(), true);
            whole = Send(member.value, to, levels - 1) && whole;
        }
        to.EndObject(from.MemberCount());
    } else if (from.IsArray()) {
        to.StartArray();
        for (const auto& element : from.GetArray()) {
            whole = Send(element, to, levels - 1) && whole;
        }
        to.EndArray(from.Size());
    } else if (from.IsString()) {
        // Not through Accept, which would let the copy of a constant string point into the source.
        to.String(from.GetString(), from.GetStringLength(), true);
    } else {
        from.Accept(to);
    }
    return whole;
}

/// Lets RapidJSON's writers append to a string.
struct StringStream {
    using Ch = char;
    void Put(char c) { text.push_back(c); }
    void Flush() {}
    std::string text;
};

using Writer = rapidjson::Writer<StringStream, rapidjson::UTF8<>, rapidjson::UTF8<>, CJsonHeap>;
using PrettyWriter = rapidjson::PrettyWriter<StringStream, rapidjson::UTF8<>, rapidjson::UTF8<>, CJsonHeap>;

/// Refuses what RapidJSON's reader makes of a lone surrogate ("\udc00"), which is no UTF-8 and could not be read again.
/// What stands in the text as bytes is checked by the reader.
class CReadValueBuilder : public CValueBuilder {
public:
    using CValueBuilder::CValueBuilder;

    bool Key(const char* text, rapidjson::SizeType length, bool copy) {
        return IsUtf8(text, length) && CValueBuilder::Key(text, length, copy);
    }
    bool String(const char* text, rapidjson::SizeType length, bool copy) {
        return IsUtf8(text, length) && CValueBuilder::String(text, length, copy);
    }

private:
    static bool IsUtf8(const char* text, rapidjson::SizeType length) {
        const char* const end = text + length;
        const auto isSurrogate = [](char lead, char next) { return lead == '\xED' && (next & 0x20) != 0; };
        return std::adjacent_find(text, end, isSurrogate) == end;
    }
};

}  // namespace

CJsonHeap* CRapidJsonUtil::Heap() {
    static CJsonHeap heap;
    return &heap;
}

bool CRapidJsonUtil::CopyValue(value& to, const value& from, Allocator& allocator) {
    bool whole{};
    BuildValue(to, allocator, [&](CValueBuilder& builder) {
        whole = Send(from, builder, kMaxNesting);
        return true;
    });
    return whole;
}

bool CRapidJsonUtil::CopyObject(value& to, const value& from, Allocator& allocator) {
    return from.IsObject() && CopyValue(to, from, allocator);
}

bool CRapidJsonUtil::CopyArray(value& to, const value& from, Allocator& allocator) {
    return from.IsArray() && CopyValue(to, from, allocator);
}

bool CRapidJsonUtil::Parse(value& to, const char* text, std::size_t length, Allocator& allocator) {
    if (text == nullptr) {
        return false;
    }
    return BuildValue<CReadValueBuilder>(to, allocator, [&](CReadValueBuilder& builder) {
        rapidjson::MemoryStream stream(text, length);
        rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, CJsonHeap> reader(Heap());
        constexpr unsigned int kFlags = rapidjson::kParseValidateEncodingFlag;
        // The reader takes a zero byte for the end of the text.
        return !reader.Parse<kFlags>(stream, builder).IsError() && stream.Tell() == length;
    });
}

bool CRapidJsonUtil::Print(std::string& out, const value& from) {
    StringStream stream;
    Writer writer(stream, Heap());
    if (!Send(from, writer, kMaxNesting)) {
        return false;
    }
    out = std::move(stream.text);
    return true;
}

bool CRapidJsonUtil::PrintPretty(std::string& out, const value& from, char indentChar, int indentCount) {
    StringStream stream;
    PrettyWriter writer(stream, Heap());
    const bool blank = indentChar == '\t' || indentChar == '\n' || indentChar == '\r';
    writer.SetIndent(blank ? indentChar : ' ', static_cast<unsigned int>(std::clamp(indentCount, 0, 16)));
    const bool whole = Send(from, writer, kMaxNesting);
    out = std::move(stream.text);
    return whole;
}
