#include "sip/SipJson.h"

#include <map>
#include <memory>

#include <gtest/gtest.h>

#include "sip/DataStruct.h"

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
    message.GetJson(text);
    return text;
}

std::string Nested(int levels) {
    return std::string(levels, '[') + std::string(levels, ']');
}

}  // namespace

TEST(SipJson, WritesCommands) {
    SipJson message;
    EXPECT_EQ(Json(message), R"({"SIP":{"V":1,"CMD":[]}})");
    message.SetCmd(message.GetCmd(), 1, 0, 0, 0x80000000, 0xFFFFFFFF);
    EXPECT_EQ(Json(message), R"({"SIP":{"V":1,"CMD":[{"OC":1,"CA":2147483648}]}})");
    message.SetReplyDataString("old", 4);
    message.SetCmdIndex(2);
    message.SetDataIntValue(-5, 6);
    EXPECT_EQ(Json(message),
              R"({"SIP":{"V":1,"CMD":[{"OC":1,"CA":2147483648,"DA":"old","ST":4},{},{"DA":-5,"ST":6}]}})");
    message.SetCmd(message.GetCmd(), 1, 2, 3, 4, 0);
    EXPECT_TRUE(message.SetCmdElemValue(message.GetCmd(), "OE", 0, true));
    EXPECT_TRUE(message.SetCmdElemValue(message.GetCmd(), "OI", 0, false));
    EXPECT_FALSE(message.SetCmdElemValue(message.GetCmd()["OC"], "OE", 1, false));
    EXPECT_NE(Json(message).find(R"({"OC":1,"OI":0,"CA":4,"ST":0}]})"), std::string::npos);
    message.JsonInit();
    EXPECT_EQ(Json(message), Json(SipJson()));
}

TEST(SipJson, WritesEachKindOfData) {
    const unsigned char raw[] = {0, 255};
    SipJson message = WithCmd(R"({"DA":[1]})");
    message.SetDataByte(255, 1);
    message.SetCmdIndex(1);
    message.SetReplyDataString(nullptr, 1);
    message.SetCmdIndex(2);
    message.SetDataStream(raw, sizeof(raw), 2);
    EXPECT_EQ(Json(message), Json(WithCmd(R"({"DA":255,"ST":1},{"DA":"","ST":1},{"DA":{"RAW":[0,255]},"ST":2})")));
}

TEST(SipJson, WritersRebuildADamagedEnvelope) {
    const struct {
        std::string before;
        int index;
        std::string after;
    } cases[] = {
        {"[1]", 0, R"({"SIP":{"V":1,"CMD":[{"ST":7}]}})"},
        {R"({"a":1,"SIP":2})", 0, R"({"a":1,"SIP":{"V":1,"CMD":[{"ST":7}]}})"},
        {R"({"SIP":{"V":3,"CMD":{}}})", 1, R"({"SIP":{"V":3,"CMD":[{},{"ST":7}]}})"},
        {R"({"SIP":{"CMD":[5]}})", 0, R"({"SIP":{"CMD":[5]}})"},                 // not an object: nothing to set
        {R"({"SIP":{"CMD":[{"ST":1}]}})", -1, R"({"SIP":{"CMD":[{"ST":1}]}})"},  // not another's
        {R"({"SIP":{"CMD":[{"ST":1}]}})", 65536, R"({"SIP":{"CMD":[{"ST":1}]}})"},
        {"[2]", -1, "[2]"},
        {R"({"SIP":{"CMD":[{"ST":1,"DA":2,"ST":3,"ST":4}]}})", 0, R"({"SIP":{"CMD":[{"ST":7,"DA":2}]}})"},
    };
    for (const auto& c : cases) {
        SipJson message = Parsed(c.before);
        message.SetCmdIndex(c.index);
        EXPECT_EQ(message.SetStatus(7), c.after.find("7") != std::string::npos);
        EXPECT_EQ(Json(message), c.after) << c.before;
    }
    const Bytes bytes(500, '1');
    SipJson text = Parsed("[1]");
    text.SetReplyDataString(std::string(500, 'x').c_str(), 7);
    EXPECT_EQ(Json(text), R"({"SIP":{"V":1,"CMD":[{"DA":")" + std::string(500, 'x') + R"(","ST":7}]}})");
    SipJson raw = Parsed("[1]");
    raw.SetDataStream(bytes.data(), bytes.size(), 7);
    Bytes read;
    EXPECT_TRUE(raw.GetCmdDataStream(0, read) && read == bytes);
    SipJson twice = WithCmd(R"({"OE":1,"OI":2,"OE":3,"CA":4,"OE":5})");
    EXPECT_TRUE(twice.SetCmdElemValue(twice.GetCmd(), "OE", 0, true));
    EXPECT_EQ(Json(twice), Json(WithCmd(R"({"OI":2,"CA":4})")));
    EXPECT_TRUE(twice.SetCmdElemValue(twice.GetCmd(), "OE", 0, true));
}

TEST(SipJson, ReadsMembersAsNumbers) {
    const std::map<unsigned, std::vector<std::string>> cases = {
        {0, {"1e300", "-1e300", R"("0x")", R"("08")", R"("0-1")", R"("0")", R"("")", R"("x")"}},
        {1, {"4294967297", "1.9", R"("0x1g")"}},
        {12, {R"("12a")", R"(" +12")"}},
        {15, {R"("017")", R"("0XF")"}},
        {31, {"31", R"("0x1F")"}},
        {99, {"true", "null", "[1]"}},
        {0xFFFFFFFE, {"-2.9", "18446744073709551614"}},
        {0xFFFFFFFF, {"-1", R"(" -1")", R"("99999999999999999999")"}},
    };
    for (const auto& [number, texts] : cases) {
        for (const auto& text : texts) {
            EXPECT_EQ(WithCmd("{\"ST\":" + text + "}").GetCmdElemValue(0, "ST", 99), number) << text;
        }
    }
}

TEST(SipJson, ReadsNothingWhereThereIsNoCommandOrMember) {
    const std::string cases[] = {"5", "{}", R"({"SIP":[]})", R"({"SIP":{"CMD":{"0":1}}})",
                                 R"({"SIP":{"CMD":[1,{"da":1}]}})"};
    for (const auto& text : cases) {
        const SipJson message = Parsed(text);
        for (const int index : {0, 1, 3, -1}) {
            unsigned number = 42;
            std::string string = "kept";
            Bytes bytes{1};
            CDataStruct data;
            EXPECT_EQ(message.GetCmdElemValue(index, "DA", 99), 99U);
            EXPECT_FALSE(message.HasCmdElem(index, "DA") || message.HasCmdElem(index, nullptr));
            EXPECT_EQ(message.GetCmdDataType(index), rapidjson::kNullType);
            EXPECT_EQ(message.GetCmdDataSize(index), 0U);
            EXPECT_FALSE(message.GetCmdUIntData(index, number) ||
                         message.GetCmdDataString(index, string, SipJson::kNoLimit) ||
                         message.GetCmdDataStream(index, bytes) || message.GetCmdDataStruct(index, data));
            EXPECT_TRUE(number == 42 && string == "kept" && bytes == Bytes{1});
        }
        EXPECT_FALSE(message.HasReplyData() || message.HasDataStruct());
        EXPECT_EQ(Json(message), text);
    }
}

TEST(SipJson, ReadsDataOfEachType) {
    constexpr int kNone = -1;
    const struct {
        const char* data;
        int type;
        unsigned size;
        long long number;  // kNone: refused, as is "-" for text and "-" for bytes
        std::string text;
        std::string bytes;
    } cases[] = {
        {"5", 6, 8, 5, "-", std::string("\5\0\0\0\0\0\0\0", 8)},
        {"-2", 6, 8, 0xFFFFFFFE, "-", "\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF"},
        {"1.5", 6, 0, 1, "-", "-"},
        {"true", 2, 1, 1, "-", "\1"},
        {"false", 1, 1, 0, "-", std::string(1, '\0')},
        {"null", 0, 0, kNone, "-", "-"},
        {R"("abc")", 5, 4, kNone, "abc", std::string("abc\0", 4)},
        {R"("a\u0000b")", 5, 4, kNone, std::string("a\0b", 3), std::string("a\0b\0", 4)},
        {R"(["ab","c"])", 4, 6, kNone, "-", std::string("ab\0c\0\0", 6)},
        {"[255,256,65535,65536]", 4, 9, kNone, "-", std::string("\xFF\0\1\xFF\xFF\0\0\1\0", 9)},
        {"[4294967296,2.5]", 4, 9, kNone, "-", std::string("\0\0\0\0\1\0\0\0\2", 9)},
        {"[1e20,-1e20,-0.5,4294967295]", 4, 21, kNone, "-", std::string(17, '\0') + "\xFF\xFF\xFF\xFF"},
        {R"([1,"a"])", 4, 0, kNone, "-", "-"},
        {"[]", 4, 0, kNone, "-", "-"},
        {R"({"RAW":[1,2,3,255]})", 3, 4, 0xFF030201, "\1\2\3\xFF", "\1\2\3\xFF"},
        {R"({"RAW":[72,105,0,33,1]})", 3, 5, kNone, "Hi", std::string("Hi\0!\1", 5)},
        {R"({"RAW":[]})", 3, 0, kNone, "", ""},
        {R"({"RAW":[1,-1]})", 3, 2, kNone, "-", "-"},
        {R"({"RAW":7})", 3, 0, kNone, "-", "-"},
    };
    for (const auto& c : cases) {
        const SipJson message = WithCmd(R"({"DA":)" + std::string(c.data) + "}");
        unsigned number = 0;
        std::string text = "-";
        Bytes bytes{'-'};
        EXPECT_EQ(message.GetCmdDataType(0), c.type) << c.data;
        EXPECT_EQ(message.GetCmdDataSize(0), c.size) << c.data;
        EXPECT_EQ(message.GetCmdUIntData(0, number) ? static_cast<long long>(number) : kNone, c.number) << c.data;
        EXPECT_EQ(message.GetCmdDataString(0, text, SipJson::kNoLimit), c.text != "-") << c.data;
        EXPECT_EQ(text, c.text) << c.data;
        EXPECT_EQ(message.GetCmdDataStream(0, bytes), c.bytes != "-") << c.data;
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), c.bytes) << c.data;
        EXPECT_EQ(message.HasReplyData(), std::string(c.data) != "null");
        EXPECT_EQ(message.HasDataStruct(), std::string(c.data) == R"({"RAW":7})") << c.data;
    }
}

TEST(SipJson, CutsTextBetweenCharacters) {
    const SipJson message = WithCmd(R"({"DA":"aé€"})");
    const std::string expected[] = {"", "a", "a", "aé", "aé", "aé", "aé€"};
    for (unsigned long max = 0; max < std::size(expected); ++max) {
        std::string text;
        EXPECT_TRUE(message.GetCmdDataString(0, text, max));
        EXPECT_EQ(text, expected[max]) << max;
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
        EXPECT_EQ(message->GetCmdIndex(), 1);
        EXPECT_EQ(message->GetContext(), 0U);
    }
}

TEST(SipJson, RefusesWhatIsNotOneShallowDocument) {
    const std::string cases[] = {"",
                                 " ",
                                 "{",
                                 "{}x",
                                 std::string("{}\0{}", 5),
                                 "\"\xC3\"",
                                 "[1,]",
                                 "{'a':1}",
                                 "1e999",
                                 "\"\\udc00\"",
                                 "{\"\\ud800\":1}",
                                 Nested(65),
                                 Nested(1000000),
                                 std::string(1000000, '[')};
    SipJson message = WithCmd(R"({"ST":1})");
    const std::string before = Json(message);
    for (const auto& text : cases) {
        EXPECT_FALSE(message.Parse(text.data(), text.size())) << text.substr(0, 10);
        EXPECT_EQ(Json(message), before);
    }
    EXPECT_FALSE(message.Parse(nullptr, 0));
    EXPECT_EQ(Json(Parsed(Nested(64))), Nested(64));
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
    const SipJson message = WithCmd(R"({"DA":{"a":[1,"x"],"b":{}}})");
    CDataStruct data;
    ASSERT_TRUE(message.GetCmdDataStruct(0, data));
    std::string text;
    EXPECT_TRUE(CDataStruct::GetPrettyJson(text, data.Get(), ' ', 4));
    EXPECT_EQ(text, "{\n    \"a\": [\n        1,\n        \"x\"\n    ],\n    \"b\": {}\n}");
    EXPECT_TRUE(CDataStruct::GetPrettyJson(text, data.Get()["a"], 'x', -1));
    EXPECT_EQ(text, "[\n1,\n\"x\"\n]");
}
