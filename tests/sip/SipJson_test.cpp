// SPDX-License-Identifier: Apache-2.0
#include "sip/SipJson.h"

#include <functional>
#include <map>
#include <memory>

#include "sip/DataStruct.h"
#include "support/Cases.h"

namespace {

using Bytes = std::vector<unsigned char>;

SipJson Parsed(const std::string& text) {
    SipJson message;
    EXPECT_TRUE(message.Parse(text.data(), text.size())) << text;
    return message;
}

SipJson WithCmd(const std::string& cmd) {
    return Parsed(R"({"SIP":{"V":1,"CMD":[)" + cmd + "]}}");
}

std::string Json(const SipJson& message) {
    std::string text = "not printed";
    const bool isPrinted = message.GetJson(text);
    EXPECT_EQ(isPrinted, text != "not printed");
    return text;
}

std::string Nested(std::size_t levels) {
    return std::string(levels, '[') + std::string(levels, ']');
}

}  // namespace

TEST(SipJson, WritersChangeTheCurrentCommandAlone) {
    for (const auto& row : Cases("sip_json.cases", "write")) {
        SipJson message = Parsed(row[1]);
        message.SetCmdIndex(std::stoi(row[2]));
        std::istringstream arguments(row[4]);
        const std::vector<long> number(std::istream_iterator<long>(arguments), {});
        const Bytes bytes(number.begin() + 1, number.end());
        const auto at = [&](std::size_t i) { return static_cast<unsigned>(number.at(i)); };
        const std::map<std::string, std::function<std::string()>> writers = {
            {"cmd", [&] { return message.SetCmd(message.GetCmd(), at(0), at(1), at(2), at(3), at(4)), "-"; }},
            {"OE", [&] { return message.SetCmdElemValue(message.GetCmd(), "OE", at(0), at(1)) ? "true" : "false"; }},
            {"DA", [&] { return message.SetCmdUIntData(message.GetCmd(), at(0)) ? "true" : "false"; }},
            {"status", [&] { return message.SetStatus(at(0)) ? "true" : "false"; }},
            {"uint", [&] { return message.SetDataUIntValue(at(0), at(1)), "-"; }},
            {"int", [&] { return message.SetDataIntValue(static_cast<int>(number[0]), at(1)), "-"; }},
            {"byte", [&] { return message.SetDataByte(static_cast<unsigned char>(number[0]), at(1)), "-"; }},
            {"null", [&] { return message.SetReplyDataString(nullptr, at(0)), "-"; }},
            {"text", [&] { return message.SetReplyDataString(row[4].substr(2).c_str(), at(0)), "-"; }},
            {"no bytes", [&] { return message.SetDataStream(nullptr, 3, at(0)), "-"; }},
            {"bytes", [&] { return message.SetDataStream(bytes.data(), bytes.size(), at(0)), "-"; }},
        };
        EXPECT_EQ(writers.at(row[3])(), row[5]) << row[1];
        EXPECT_EQ(Json(message), row[6]) << row[1];
    }
}

TEST(SipJson, StartsAfreshWithItsMemoryAndReachesTheLastIndex) {
    SipJson message = WithCmd(R"({"DA":"old"})");
    message.SetCmdIndex(65535);
    EXPECT_TRUE(message.SetStatus(7) && message.GetCmdElemValue(65535, "ST", 0) == 7);
    const std::size_t fresh = SipJson().GetAllocator().Size();
    message.JsonInit();
    EXPECT_EQ(Json(message), R"({"SIP":{"V":1,"CMD":[]}})");
    EXPECT_TRUE(message.GetCmdIndex() == 65535 && message.GetAllocator().Size() == fresh);
    message.SetReplyDataString("", 0);
    message.SetContext(5);
    EXPECT_TRUE(SipJson(message).GetContext() == 0 && message.GetContext() == 5);
    message = SipJson();
    EXPECT_TRUE(message.GetAllocator().Size() == fresh && message.GetContext() == 0);
}

TEST(SipJson, ReadsMembersAsNumbers) {
    for (const auto& row : Cases("sip_json.cases", "number")) {
        const SipJson message = WithCmd("{\"ST\":5},{\"ST\":" + row[1] + "}");
        EXPECT_EQ(std::to_string(message.GetCmdElemValue(1, "ST", 99)), row[2]) << row[1];
    }
}

TEST(SipJson, ReadsNothingWhereThereIsNoCommandOrMember) {
    for (const auto& row : Cases("sip_json.cases", "nothing")) {
        const SipJson message = Parsed(row[1]);
        for (const int index : {0, 1, 3, -1}) {
            unsigned number = 42;
            std::string string = "kept";
            Bytes bytes{1};
            CDataStruct data;
            EXPECT_TRUE(message.GetCmdElemValue(index, "DA", 99) == 99 && message.GetCmdDataSize(index) == 0);
            EXPECT_FALSE(message.HasCmdElem(index, "DA") || message.HasCmdElem(index, nullptr));
            EXPECT_EQ(message.GetCmdDataType(index), rapidjson::kNullType);
            EXPECT_FALSE(message.GetCmdUIntData(index, number) ||
                         message.GetCmdDataString(index, string, SipJson::kNoLimit) ||
                         message.GetCmdDataStream(index, bytes) || message.GetCmdDataStruct(index, data));
            EXPECT_TRUE(number == 42 && string == "kept" && bytes == Bytes{1});
        }
        EXPECT_FALSE(message.HasReplyData() || message.HasDataStruct());
        EXPECT_EQ(Json(message), row[1]);
    }
}

TEST(SipJson, ReadsDataOfEachType) {
    for (const auto& row : Cases("sip_json.cases", "data")) {
        const bool isStruct = row[1] == R"({"RAW":7})";
        for (const int index : {1, 0}) {
            const std::string other = isStruct ? "null" : R"({"a":{}})";
            SipJson message = WithCmd(R"({"DA":)" + (index == 1 ? other + "},{\"DA\":" + row[1] : row[1]) + "}");
            message.SetCmdIndex(index);
            unsigned number = 0;
            std::string text;
            Bytes bytes;
            CDataStruct data;
            EXPECT_EQ(std::to_string(message.GetCmdDataType(index)), row[2]) << row[1];
            EXPECT_EQ(std::to_string(message.GetCmdDataSize(index)), row[3]) << row[1];
            EXPECT_EQ(message.GetCmdUIntData(index, number) ? std::to_string(number) : "-", row[4]) << row[1];
            EXPECT_EQ(message.GetCmdDataString(index, text, SipJson::kNoLimit) ? "=" + text : "-", row[5]) << row[1];
            EXPECT_EQ(message.GetCmdDataStream(index, bytes) ? "=" + std::string(bytes.begin(), bytes.end()) : "-",
                      row[6])
                << row[1];
            EXPECT_EQ(message.HasReplyData(), row[1] != "null");
            EXPECT_TRUE(message.HasDataStruct() == isStruct && message.GetCmdDataStruct(index, data) == isStruct);
        }
    }
}

TEST(SipJson, CutsTextBetweenCharacters) {
    for (const auto& row : Cases("sip_json.cases", "cut")) {
        std::string text;
        EXPECT_TRUE(WithCmd("{\"DA\":" + row[1] + "}").GetCmdDataString(0, text, std::stoul(row[2])));
        EXPECT_EQ(text, row[3]) << row[2];
    }
}

TEST(SipJson, CopiesOutliveTheirSource) {
    auto source = std::make_unique<SipJson>(WithCmd(R"({"DA":"a text too long to be kept inside of a value"},{})"));
    std::string name = "a name that the source keeps by reference";
    source->GetCmd().AddMember(rapidjson::StringRef(name.c_str()), 1, source->GetAllocator());
    source->SetCmdIndex(1);
    source->SetContext(0xDEADBEEF);
    const std::string text = Json(*source);
    const SipJson copy = *source;
    SipJson assigned;
    assigned.SetContext(1);
    assigned = *source;
    const SipJson& same = assigned;
    assigned = same;
    source.reset();
    name.assign(name.size(), '?');
    for (const SipJson* message : {&copy, &same}) {
        EXPECT_EQ(Json(*message), text);
        EXPECT_TRUE(message->GetCmdIndex() == 1 && message->GetContext() == 0);
    }
}

TEST(SipJson, RefusesWhatIsNotOneShallowDocument) {
    std::vector<std::string> texts = {Nested(65), Nested(1000000), std::string(1000000, '[')};
    for (const auto& row : Cases("sip_json.cases", "refused")) {
        texts.push_back(row[1]);
    }
    SipJson message = WithCmd(R"({"ST":1})");
    const std::string before = Json(message);
    for (const auto& text : texts) {
        EXPECT_FALSE(message.Parse(text.data(), text.size())) << text.substr(0, 10);
        EXPECT_EQ(Json(message), before);
    }
    EXPECT_FALSE(message.Parse(nullptr, 0));
    std::string objects = "{}";
    for (int level = 1; level < 64; ++level) {
        objects = R"({"a":)" + objects + "}";
    }
    for (const std::string& text : {Nested(64), objects}) {
        const SipJson deepest = Parsed(text);
        const SipJson copy = deepest;  // NOLINT(performance-unnecessary-copy-initialization): it is what is looked at
        EXPECT_EQ(Json(copy), text);
    }
}

TEST(SipJson, LeavesOutOfACopyWhatIsNestedTooDeeply) {
    SipJson message = WithCmd(R"({"ST":3,"DA":{}})");
    CRapidJsonUtil::value chain(rapidjson::kArrayType);
    CRapidJsonUtil::Allocator& pool = message.GetAllocator();
    for (int level = 1; level < 100000; ++level) {
        CRapidJsonUtil::value outer(rapidjson::kArrayType);
        chain = outer.PushBack(chain, pool);
    }
    CRapidJsonUtil::value shallow(1);
    EXPECT_FALSE(CRapidJsonUtil::CopyArray(shallow, message.GetCmd(), pool));
    EXPECT_FALSE(CRapidJsonUtil::CopyObject(shallow, chain, pool));
    EXPECT_EQ(shallow.GetInt(), 1);
    message.GetCmd()["DA"].AddMember("deep", chain, pool);
    EXPECT_EQ(Json(message), "not printed");
    const SipJson copy = message;
    EXPECT_EQ(copy.GetCmdElemValue(0, "ST", 0), 3U);
    EXPECT_NE(Json(copy).find("[[[null]]]"), std::string::npos);
    CDataStruct data;
    EXPECT_TRUE(message.GetCmdDataStruct(0, data));
}

TEST(DataStruct, PrintsIndentedText) {
    for (const auto& row : Cases("sip_json.cases", "pretty")) {
        std::string text;
        EXPECT_TRUE(CDataStruct::GetPrettyJson(text, Parsed(row[1]).GetDocument(), row[2][0], std::stoi(row[3])));
        EXPECT_EQ(text, row[4]);
    }
}
