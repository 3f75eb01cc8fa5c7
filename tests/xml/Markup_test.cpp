// SPDX-License-Identifier: Apache-2.0
#include "xml/Markup.h"

#include <sys/stat.h>

#include "support/DataRows.h"

/// Of a host that speaks Turkish, where "I" is not the capital of "i".
extern "C" int tolower(int c) noexcept {
    return c == 'I' ? 0xFD : c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c;
}

TEST(Markup, LoadTellsWhatIsWrongWithAFile) {
    const CTempDirectory directory;
    CMarkup document;
    for (const auto& row : DataRows(EM_TEST_DATA "/documents.txt")) {
        const bool isLoaded = row[0].starts_with('=');
        WriteFile(directory / "a.xml", row[1]);
        EXPECT_TRUE(document.Load(directory / "a.xml") == isLoaded && document.FindElem() == isLoaded) << row[1];
        EXPECT_EQ(document.Status(), isLoaded ? CMarkup::LoadStatus::Loaded : CMarkup::LoadStatus::Damaged) << row[1];
        EXPECT_EQ(isLoaded ? "=" + document.GetData() : document.ErrorText(), row[0]) << row[1];
    }
    ASSERT_EQ(::mkfifo((directory / "fifo").c_str(), 0600), 0);
    WriteFile(directory / "huge", "<a/>");
    std::filesystem::resize_file(directory / "huge", 16 * 1024 * 1024 + 1);
    for (const std::string name : {"fifo", "", "a.xml/below", "huge", "no/such/file"}) {
        const auto status = name[0] == 'n' ? CMarkup::LoadStatus::Missing : CMarkup::LoadStatus::Unreadable;
        EXPECT_TRUE(!document.Load(directory / name) && document.Status() == status) << name;
    }
}

TEST(Markup, SavesOnlyWhatCanBeLoadedAgain) {
    const CTempDirectory directory;
    CMarkup document;
    EXPECT_TRUE(!document.Save(directory / "a.xml") && document.ErrorText() == "No root element at offset 39");
    ASSERT_TRUE(document.SetDoc("<?xml version='1.0'?><a></a>") && document.FindElem());
    const std::string most(16UL * 1024 * 1024 - std::string("<?xml version=\"1.0\"?>\n<a></a>\n").size(), 'x');
    EXPECT_TRUE(document.SetData(most + "x") && !document.Save(directory / "a.xml"));
    EXPECT_TRUE(document.ErrorText() == "File too large" && directory.FileCount() == 0);
    EXPECT_TRUE(document.SetData(most) && document.Save(directory / "a.xml") && document.Load(directory / "a.xml"));
}

TEST(Markup, WhatItDoesNotKnowSurvives) {
    const std::string text = ReadFile(EM_TEST_DATA "/foreign.xml");
    CMarkup document;
    EXPECT_TRUE(document.SetDoc(text) && document.GetDocFormatted() == text) << document.GetDocFormatted();
}

TEST(Markup, EscapesTextAndAttributesAndDropsWhatXmlCannotHold) {
    CMarkup document;
    ASSERT_TRUE(document.SetDoc("<?xml version='1.0' encoding='iso-8859-1'?><a>x<!-- \xFC --><![CDATA[y]]></a>"));
    EXPECT_TRUE(document.FindElem() && document.GetData() == "xy");
    const std::string value = "<&>\"'\r\n\t\xC3\xBC\xF0\x9F\x94\x94";
    const std::string unfit = "\x01\x1F\xFF\xC0\xAF\xED\xA0\x80\xEF\xBF\xBF\xF4\x90\x80\x80\xE2\x82";
    EXPECT_TRUE(document.SetData(value + unfit + "]]>") && document.SetAttrib("b", value + unfit));
    const std::string text = document.GetDocFormatted();
    EXPECT_EQ(text, ReadFile(EM_TEST_DATA "/escaped.xml"));
    ASSERT_TRUE(document.SetDoc(text) && document.FindElem("a"));
    EXPECT_TRUE(document.GetData() == value + "]]>" && document.GetAttrib("b") == value);
    EXPECT_TRUE(document.SetData("\xC3\xBC") && document.GetDocFormatted().find(">\xC3\xBC<!--") < text.size());
}

TEST(Markup, WalksAndEditsWithACursor) {
    CMarkup document;
    EXPECT_FALSE(document.FindElem() || document.IntoElem() || document.OutOfElem() || document.AddChildElem("a") ||
                 document.RemoveChildElem() || document.SetData("") || document.SetData("x") ||
                 document.SetAttrib("a", "") || document.RemoveAttrib("a"));
    ASSERT_TRUE(document.SetDoc("<r>t<!-- c --><a x='1'>1</a><b/>u<a>2<c/>3</a></r>") && document.FindElem("r"));
    EXPECT_FALSE(document.AddElem("s"));  // one root
    const CMarkup::Position start = document.SavePos();
    EXPECT_TRUE(document.GetData() == "tu" && document.FindChildElem("a") && document.FindChildElem("a"));
    EXPECT_FALSE(document.FindChildElem("a") || document.FindChildElem());
    EXPECT_TRUE(document.IntoElem() && document.GetData() == "23" && !document.FindElem() && document.OutOfElem());
    EXPECT_TRUE(document.RemoveChildElem() && !document.FindChildElem("a") && document.IntoElem() &&  // now at b
                document.GetData().empty());
    EXPECT_TRUE(document.AddElem("d") && document.SetData("&") && document.SetAttrib("y", "<"));
    document.RestorePos(start);
    EXPECT_TRUE(document.FindChildElem() && document.IntoElem() && document.GetAttrib("x") == "1");
    EXPECT_TRUE(document.RemoveAttrib("x") && !document.RemoveAttrib("x") && document.SetData("") &&
                document.AddChildElem("e") && document.AddChildElem("f") && document.RemoveChildElem());
    EXPECT_EQ(document.GetDocFormatted(), ReadFile(EM_TEST_DATA "/edited.xml"));
    ASSERT_TRUE(document.SetDoc("<s/>"));
    document.RestorePos(start);  // of another document
    EXPECT_TRUE(document.FindElem("s") && !document.SetDoc("<s>") && !document.FindElem());
    EXPECT_TRUE(!document.ErrorText().empty() && document.SetDoc("") && document.ErrorText().empty());
}
