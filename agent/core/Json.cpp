// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Json.h"

#include <array>

#include <rapidjson/encodings.h>
#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>

namespace {

CRapidJsonUtil::Document Checked(CRapidJsonUtil::Document document) {
    if (document.HasParseError()) {
        throw CAgentError("not valid JSON at character " + std::to_string(document.GetErrorOffset() + 1) + ": " +
                          rapidjson::GetParseError_En(document.GetParseError()));
    }
    return document;
}

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

std::string WithoutBadBytes(std::string_view text) {
    std::string whole;
    while (!text.empty()) {
        std::string_view rest = text;
        const bool isCharacter = TakeCharacter(rest).has_value();
        whole += isCharacter ? text.substr(0, text.size() - rest.size()) : "\uFFFD";
        text = rest;
    }
    return whole;
}

}  // namespace

std::optional<unsigned int> TakeCharacter(std::string_view& text) {
    rapidjson::MemoryStream stream(text.data(), text.size());
    unsigned int character = 0;
    const bool isValid = rapidjson::UTF8<>::Decode(stream, &character) && stream.Tell() <= text.size();
    text.remove_prefix(isValid ? stream.Tell() : 1);
    return isValid ? std::optional(character) : std::nullopt;
}

bool IsValidUtf8(std::string_view text) {
    return WithoutBadBytes(text) == text;
}

std::size_t TooDeepAt(std::string_view text) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            i += c == '\\' ? 1 : 0;
            inString = c != '"';
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > CRapidJsonUtil::kMaxNesting) {
                return i;
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return std::string_view::npos;
}

std::string TooDeepText() {
    return "nested deeper than " + std::to_string(CRapidJsonUtil::kMaxNesting) + " levels";
}

CRapidJsonUtil::Document ParseJson(std::string_view text) {
    if (TooDeepAt(text) != std::string_view::npos) {
        throw CAgentError(TooDeepText());
    }
    CRapidJsonUtil::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(text.data(), text.size());
    return Checked(std::move(document));
}

CRapidJsonUtil::Document ParseNextValue(rapidjson::MemoryStream& stream) {
    CRapidJsonUtil::Document document;
    document.ParseStream<rapidjson::kParseStopWhenDoneFlag | rapidjson::kParseValidateEncodingFlag>(stream);
    return Checked(std::move(document));
}

std::string JsonText(const CRapidJsonUtil::value& value) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    value.Accept(writer);
    return {buffer.GetString(), buffer.GetSize()};
}

std::string JsonString(std::string_view text) {
    const std::string whole = WithoutBadBytes(text);
    return JsonText(CRapidJsonUtil::value(rapidjson::StringRef(whole.data(), whole.size())));
}

std::string JsonTime(std::time_t time) {
    if (time == 0) {
        return "null";
    }
    std::tm utc{};
    ::gmtime_r(&time, &utc);
    std::array<char, 40> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "\"%FT%TZ\"", &utc)};
}
