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
    const std::string declared = "<?xml version='1.0' encoding=";
    const std::pair<std::string, std::string> cases[] = {
        // "=" and the text of the root element, or what is wrong
        {"<a>x</a>", "=x"},
        {"\xEF\xBB\xBF<?xml version='1.0'?><a>\xC3\xBC</a>\n<!-- c -->\n", "=\xC3\xBC"},
        {"<a>M\xFCller</a>", "=M\xC3\xBCller"},
        {declared + "'utf8' standalone = \"no\" ?><a>\xC3\xBC\xE2\x82\xAC\xF0\x9F\x94\x94</a>",
         "=\xC3\xBC\xE2\x82\xAC\xF0\x9F\x94\x94"},
        {declared + "\"ascii\"?><a>x</a>", "=x"},
        {declared + "'us-ascii'?><a>\xFC</a>", "=\xC3\xBC"},
        {declared + "'ISO8859-1'?><a>\xC3\xBC</a>", "=\xC3\x83\xC2\xBC"},
        {declared + "'iso_8859-1'?><a>\xFC</a>", "=\xC3\xBC"},
        {declared + "'ISO-8859-1'?><a>\xFC</a>", "=\xC3\xBC"},
        {declared + "'Latin-1'?><a>\xFC</a>", "=\xC3\xBC"},
        {declared + "'latin1'?><a>\xFC</a>", "=\xC3\xBC"},
        {declared + "'windows-1252'?><a>\xFC</a>", "Unknown encoding"},
        {"\xFF\xFE<\0a\0>\0\xFC\0=\xD8\x14\xDD<\0/\0a\0>\0"s, "=\xC3\xBC\xF0\x9F\x94\x94"},
        {"\0<\0a\0>\x20\xAC\0<\0/\0a\0>"s, "=\xE2\x82\xAC"},
        {"<\0\0\0a\0\0\0/\0\0\0>\0\0\0"s, "="},
        {"\0\0\xFE\xFF\0\0\0<\0\0\0a\0\0\0/\0\0\0>"s, "="},
        {"<\0a\0/\0>\0x"s, "Incomplete character"},
        {"<\0a\0/\0>\0=\xD8"s, "Incomplete character"},
        {"<\0a\0/\0>\0=\xD8=\xD8"s, "Not a character"},
        {"<a b='1' c=\"&#x41;&quot;'\"  >&lt;&#10;&apos;<b/></a >", "=<\n'"},
        {"<!DOCTYPE a PUBLIC \"-//A//B\" 'a.dtd' ><?t?><a><?t u?><![CDATA[<]]>&gt;&amp;</a>", "=<>&"},
        {Nested(64), "="},
        {Nested(65), "Nested too deep at offset 194"},
        {"", "No root element at offset 0"},
        {"rubbish <a/>", "No root element at offset 0"},
        {std::string(100, '\0'), "No root element at offset 0"},
        {"<a>x</a>\0\0"s, "Text or an element behind the root element at offset 8"},
        {"<a/><b/>", "Text or an element behind the root element at offset 4"},
        {"<!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>",
         "The document type is damaged, or declares something at offset 12"},
        {"<!DOCTYPE a SYSTEM><a/>", "The document type is damaged at offset 18"},
        {"<!DOCTYPE a PUBLIC '\xC3\xBC' 'b'><a/>", "The document type is damaged at offset 23"},
        {"<!DOCTYPE a SYSTEM '\x01'><a/>", "The document type is damaged at offset 22"},
        {" <?xml version='1.0'?><a/>", "A declaration that is not at the start at offset 6"},
        {"<!-- c --><?xml version='1.0'?><a/>", "A declaration that is not at the start at offset 15"},
        {"<?xml encoding='UTF-8'?><a/>", "The declaration has no version at offset 6"},
        {"<?xml version='2.0'?><a/>", "The declaration is damaged at offset 19"},
        {"<?xml version='1.0' encoding='-'?><a/>", "Unknown encoding"},
        {"<?xml version='1.0' standalone='on'?><a/>", "The declaration is damaged at offset 35"},
        {"<?xml version='1.0' more='x'?><a/>", "The declaration is damaged at offset 20"},
        {"<a><b></a></b>", "The end of another element at offset 9"},
        {"<a><b>x</b>", "An element is not closed at offset 11"},
        {"<a b='1' c='' b='2'/>", "An attribute twice at offset 19"},
        {"<a b='1'c='2'/>", "A tag is damaged at offset 8"},
        {"<a b='<'/>", "\"<\" in the value of an attribute at offset 6"},
        {"<a b=1/>", "A quote is missing at offset 5"},
        {"<a b/>", "\"=\" is missing at offset 4"},
        {"<a / >", "A tag is damaged at offset 3"},
        {"<a></a b>", "A tag is damaged at offset 7"},
        {"<-a/>", "A name is missing at offset 1"},
        {"<a\xC3\x97/>", "A tag is damaged at offset 2"},
        {"<a><!-- a -- b --></a>", "\"--\" in a comment at offset 12"},
        {"<a><![CDATA[x</a>", "The end is missing of what begins at offset 12"},
        {"<a><?t!?></a>", "An instruction is damaged at offset 6"},
        {"<a>]]></a>", "\"]]>\" in a text at offset 3"},
        {"<a>a & b</a>", "Unknown entity at offset 5"},
        {"<a b='&c;'/>", "Unknown entity at offset 6"},
        {"<a>&#0;</a>", "Not a character reference at offset 3"},
        {"<a>&#65</a>", "Not a character reference at offset 3"},
        {"<a>&#xDFFF;</a>", "Not a character reference at offset 3"},
        {"<a>\x0B</a>", "Not a character of XML at offset 3"},
        {"<a><!--\xEF\xBF\xBE--></a>", "Not a character of XML at offset 7"}};
    const CTempDirectory directory;
    CMarkup document;
    for (const auto& [text, outcome] : cases) {
        const bool isLoaded = outcome.starts_with('=');
        WriteFile(directory / "a.xml", text);
        EXPECT_EQ(document.Load(directory / "a.xml"), isLoaded) << text;
        EXPECT_EQ(document.Status(), isLoaded ? CMarkup::LoadStatus::Loaded : CMarkup::LoadStatus::Damaged) << text;
        EXPECT_EQ(document.FindElem(), isLoaded) << text;
        EXPECT_EQ(isLoaded ? "=" + document.GetData() : document.ErrorText(), outcome) << text;
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

TEST(Markup, SavesOnlyWhatCanBeLoadedAgain) {
    const CTempDirectory directory;
    CMarkup document;
    EXPECT_TRUE(!document.Save(directory / "a.xml") && document.ErrorText() == "No root element at offset 39");
    ASSERT_TRUE(document.SetDoc("<?xml version='1.0'?><a></a>") && document.FindElem());
    const std::string most(16 * 1024 * 1024 - std::string("<?xml version=\"1.0\"?>\n<a></a>\n").size(), 'x');
    EXPECT_TRUE(document.SetData(most + "x") && !document.Save(directory / "a.xml"));
    EXPECT_TRUE(document.ErrorText() == "File too large" && directory.FileCount() == 0);
    EXPECT_TRUE(document.SetData(most) && document.Save(directory / "a.xml") && document.Load(directory / "a.xml"));
}

TEST(Markup, WhatItDoesNotKnowSurvives) {
    const std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<!DOCTYPE suite SYSTEM \"suite.dtd\">\n"
        "<!-- head -->\n<suite xmlns:k=\"urn:k\" a=\"1\">\n  <?tool keep?>\n"
        "  <k:foreign k:b=\"&lt;&amp;&gt;&quot;&apos;&#10;\"><![CDATA[<raw>&]]></k:foreign>\n"
        "  <mixed>one <b>two</b> three</mixed>\n  <blank> </blank>\n  <empty />\n"
        "  <b>\n    <c>\n      <d>\n        <e>\n          <f>\n            <g>\n              <h>\n"
        "                <i><j /><k><l /></k></i>\n              </h>\n            </g>\n          </f>\n"
        "        </e>\n      </d>\n    </c>\n  </b>\n</suite>\n";
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
