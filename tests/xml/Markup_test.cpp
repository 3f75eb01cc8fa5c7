#include "xml/Markup.h"

#include <sys/stat.h>

#include "xml/TempDirectory.h"

namespace {

std::string Nested(int levels) {
    std::string text = "x";
    for (int i = 0; i < levels; ++i) {
        text = "<a>" + text + "</a>";
    }
    return text;
}

}  // namespace

TEST(Markup, LoadTellsWhatIsWrongWithAFile) {
    using namespace std::string_literals;
    const char* const none = nullptr;
    const std::pair<std::string, const char*> cases[] = {
        // the text of the root element; none: damaged
        {"<a>x</a>", "x"},
        {"\xEF\xBB\xBF<?xml version='1.0'?><a>\xC3\xBC</a>\n<!-- c -->\n", "\xC3\xBC"},
        {"<a>M\xFCller</a>", "M\xC3\xBCller"},
        {"\xFF\xFE<\0a\0>\0x\0<\0/\0a\0>\0"s, "x"},
        {Nested(64), ""},
        {Nested(65), none},
        {"", none},
        {std::string(100, '\0'), none},
        {"<a>x</a>\0\0"s, none},
        {"[Logging]\nkey=value\n", none},
        {"rubbish <a/>", none},
        {"<a/><b/>", none},
        {"<a><b></a>", none},
        {"<a><b>x</b>", none},
        {"<?xml version='1.0' encoding='windows-1252'?><a>\xFC</a>", none},
        {"<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>", none}};
    const CTempDirectory directory;
    CMarkup document;
    for (const auto& [text, data] : cases) {
        WriteFile(directory / "a.xml", text);
        EXPECT_EQ(document.Load(directory / "a.xml"), data != none) << text;
        EXPECT_EQ(document.Status(), data != none ? CMarkup::LoadStatus::Loaded : CMarkup::LoadStatus::Damaged) << text;
        EXPECT_EQ(document.FindElem(), data != none) << text;
        EXPECT_EQ(document.GetData(), data != none ? data : "") << text;
    }
    ASSERT_EQ(::mkfifo((directory / "fifo").c_str(), 0600), 0);
    WriteFile(directory / "huge", "<a/>");
    std::filesystem::resize_file(directory / "huge", 16 * 1024 * 1024 + 1);
    for (const char* name : {"fifo", "", "a.xml/below", "huge"}) {
        EXPECT_FALSE(document.Load(directory / name));
        EXPECT_EQ(document.Status(), CMarkup::LoadStatus::Unreadable) << name;
    }
    EXPECT_FALSE(document.Load(directory / "no/such/file"));
    EXPECT_EQ(document.Status(), CMarkup::LoadStatus::Missing);
}

TEST(Markup, WhatItDoesNotKnowSurvives) {
    const std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<!DOCTYPE suite SYSTEM \"suite.dtd\">\n"
        "<!-- head -->\n<suite xmlns:k=\"urn:k\" a=\"1\">\n  <?tool keep?>\n"
        "  <k:foreign k:b=\"&lt;&amp;&gt;&quot;&apos;&#10;\"><![CDATA[<raw>&]]></k:foreign>\n"
        "  <mixed>one <b>two</b> three</mixed>\n  <blank> </blank>\n  <empty />\n</suite>\n";
    CMarkup document;
    ASSERT_TRUE(document.SetDoc(text));
    EXPECT_EQ(document.GetDocFormatted(), text);
}

TEST(Markup, EscapesTextAndAttributesAndDropsWhatXmlCannotHold) {
    CMarkup document;
    ASSERT_TRUE(document.SetDoc("<?xml version='1.0' encoding='iso-8859-1'?><a>x<!-- \xFC --><![CDATA[y]]></a>"));
    ASSERT_TRUE(document.FindElem());
    EXPECT_EQ(document.GetData(), "xy");
    const std::string value = "<&>\"'\r\n\t\xC3\xBC\xF0\x9F\x94\x94";
    const std::string unfit = "\x01\x1F\xFF\xC0\xAF\xED\xA0\x80\xEF\xBF\xBF\xF4\x90\x80\x80\xE2\x82";
    document.SetData(value + unfit + "]]>");
    document.SetAttrib("b", value + unfit);
    const std::string text = document.GetDocFormatted();
    EXPECT_EQ(text,
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<a b=\"&lt;&amp;&gt;&quot;&apos;&#13;&#10;&#9;\xC3\xBC\xF0\x9F\x94\x94\">"
              "&lt;&amp;&gt;\"'&#13;\n\t\xC3\xBC\xF0\x9F\x94\x94]]&gt;<!-- \xC3\xBC -->\n</a>\n");
    ASSERT_TRUE(document.SetDoc(text) && document.FindElem("a"));
    EXPECT_EQ(document.GetData(), value + "]]>");
    EXPECT_EQ(document.GetAttrib("b"), value);
}
