// SPDX-License-Identifier: Apache-2.0
#include "mail/text/LumeString.h"

#include <stdexcept>

#include "support/DataRows.h"

template class CLumeStringT<std::string, char>;  // every operation compiles, used or not

namespace {

using Replace = void(std::string&, const std::string&, const std::string&);

std::string Replaced(Replace replace, std::string target, const std::string& find, const std::string& replacement) {
    replace(target, find, replacement);
    return target;
}

/// The replacement as its contract words it.
void ReplaceAnewFromTheStart(std::string& target, const std::string& find, const std::string& replacement) {
    const auto lower = [](std::string s) {
        std::ranges::transform(s, s.begin(), ::tolower);
        return s;
    };
    std::string searched = lower(target);
    for (std::size_t p = 0; (p = searched.find(lower(find))) != std::string::npos;) {
        target.replace(p, find.size(), replacement);
        searched.replace(p, find.size(), replacement);
    }
}

}  // namespace

TEST(LumeString, DoesAsListed) {
    for (auto row : DataRows(EM_TEST_DATA "/strings.cases")) {
        row.resize(5);
        const char* const chars = row[2] == "-" ? nullptr : row[2].c_str();
        std::string text = row[1];
        if (row[0] == "left") {
            CLumeString::TrimLeft(text, chars);
        } else if (row[0] == "right") {
            CLumeString::TrimRight(text, chars);
        } else if (row[0] == "replace") {
            CLumeString::ReplaceIgnoreCase(text, row[2], row[4]);
        } else if (row[0] == "replace token") {
            CLumeString::ReplaceTokenIgnoreCase(text, row[2], row[4]);
        } else if (row[0] == "contains") {
            text = CLumeString::ContainsTokenIgnoreCase(text, row[2]) ? "yes" : "no";
        } else {
            std::vector<std::string> tokens{"old"};
            EXPECT_TRUE(CLumeString(text).Split(tokens, chars));
            std::string token;
            unsigned long pos = std::stoul(row[4]);
            text = CLumeString::Split(token, text, chars, pos) ? token + "|" : "none|";
            text += pos == std::string::npos ? "end" : std::to_string(pos);
            for (const std::string& each : tokens) {
                text += "|" + each;
            }
        }
        EXPECT_EQ(text, row[3]) << row[0] << " " << row[1];
    }
    std::string token;
    unsigned long pos = 4;
    for (const char* delims : {"", ";"}) {
        EXPECT_THROW(CLumeString::Split(token, "a;b", delims, pos), std::out_of_range);
    }
}

TEST(LumeString, ReplacesAsIfSearchingAnewFromTheStart) {
    // All short texts over a small alphabet: matches overlap, and arise where inserted text meets its surroundings.
    for (int n = 0; n < 4096; ++n) {
        std::string text;
        for (int digits = n, i = 0; i < 6; ++i, digits /= 4) {
            text += "aBb$"[digits % 4];
        }
        for (const char* find : {"a", "ab", "aBa", "bb", "$b"}) {
            for (const char* replacement : {"", "A", "B", "cdE", "Ab", "$", "$B"}) {
                ASSERT_EQ(Replaced(CLumeString::ReplaceIgnoreCase, text, find, replacement),
                          Replaced(ReplaceAnewFromTheStart, text, find, replacement))
                    << text << " " << find << " " << replacement;
            }
        }
    }
}

TEST(LumeString, ComparesWholeWideCharacters) {
    std::wstring text = L"\u0141A\u0161";  // whose last bytes are those of "A" and "a"
    CLumeStringT<std::wstring, wchar_t>::ReplaceIgnoreCase(text, L"a", L"x");
    EXPECT_EQ(text, L"\u0141x\u0161");
}

TEST(LumeString, ReplacesInLinearTime) {
    std::string target;
    for (int i = 0; i < 200000; ++i) {
        target += "$(NAME)";
    }
    CLumeString::ReplaceIgnoreCase(target, "$(name)", "a longer value");  // rescanning takes longer than a test may
    EXPECT_EQ(target.size(), 200000 * std::string("a longer value").size());
}

TEST(LumeString, FormatsTextsOfAnyLengthAndItsOwnContent) {
    CLumeString text;
    text.Format("%s-%d", "key", 7);
    text.AppendFormat("|%s", text.c_str());
    text.Format("<%s>", text.c_str());
    EXPECT_EQ(text, "<key-7|key-7>");
    text.Format("%5000d", 1);
    EXPECT_EQ(text, std::string(4999, ' ') + "1");
}
