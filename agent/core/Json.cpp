// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Json.h"

#include <array>

#include <rapidjson/error/en.h>

namespace {

CRapidJsonUtil::Document Checked(CRapidJsonUtil::Document document) {
    if (document.HasParseError()) {
        throw CAgentError("not valid JSON at character " + std::to_string(document.GetErrorOffset() + 1) + ": " +
                          rapidjson::GetParseError_En(document.GetParseError()));
    }
    return document;
}

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

}  // namespace

void RefuseDeepNesting(std::string_view text) {
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
                throw CAgentError("nested deeper than " + std::to_string(CRapidJsonUtil::kMaxNesting) + " levels");
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
}

CRapidJsonUtil::Document ParseJson(std::string_view text) {
    RefuseDeepNesting(text);
    CRapidJsonUtil::Document document;
    document.Parse(text.data(), text.size());
    return Checked(std::move(document));
}

CRapidJsonUtil::Document ParseNextValue(rapidjson::MemoryStream& stream) {
    CRapidJsonUtil::Document document;
    document.ParseStream<rapidjson::kParseStopWhenDoneFlag>(stream);
    return Checked(std::move(document));
}

std::string JsonText(const CRapidJsonUtil::value& value) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    value.Accept(writer);
    return {buffer.GetString(), buffer.GetSize()};
}

std::string JsonString(std::string_view text) {
    return JsonText(CRapidJsonUtil::value(rapidjson::StringRef(text.data(), text.size())));
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
