#include "mail/LumeString.h"

#include <array>
#include <stdexcept>
#include <tuple>

#include <gtest/gtest.h>

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
        std::transform(s.begin(), s.end(), s.begin(), ::tolower);
        return s;
    };
    std::string searched = lower(target);
    for (std::size_t p = 0; (p = searched.find(lower(find))) != std::string::npos;) {
        target.replace(p, find.size(), replacement);
        searched.replace(p, find.size(), replacement);
    }
}

}  // namespace

TEST(LumeString, SplitsTheWholeString) {
    const std::tuple<const char*, const char*, std::vector<std::string>> cases[] = {
        {"a,,b", ",", {"a", "", "b"}},    {"a,", ",", {"a", ""}}, {"", ",", {""}},
        {"a;b c", "; ", {"a", "b", "c"}}, {"a b", "", {"a b"}},   {"a", nullptr, {"a"}},
    };
    for (const auto& [text, delims, expected] : cases) {
        std::vector<std::string> tokens{"old"};
        EXPECT_TRUE(CLumeString(text).Split(tokens, delims));
        EXPECT_EQ(tokens, expected) << text;
    }
}

TEST(LumeString, TakesOneTokenAfterTheOther) {
    std::string token;
    unsigned long pos = 0;
    EXPECT_TRUE(CLumeString::Split(token, "ab;", ";", pos));
    EXPECT_EQ(token + "|" + std::to_string(pos), "ab|3");
    EXPECT_TRUE(CLumeString::Split(token, "ab;", ";", pos));
    EXPECT_EQ(token, "");
    EXPECT_FALSE(CLumeString::Split(token, "ab;", ";", pos));
    for (const char* delims : {"", static_cast<const char*>(nullptr)}) {
        pos = 1;
        EXPECT_TRUE(CLumeString::Split(token, "a;b", delims, pos));
        EXPECT_EQ(token + "|" + std::to_string(pos), ";b|1");
    }
    for (const char* delims : {"", ";"}) {
        EXPECT_THROW(CLumeString::Split(token, "a;b", delims, pos = 4), std::out_of_range);
    }
}

TEST(LumeString, TrimsEachEndByItself) {
    for (const auto& [text, left, right] : {std::array{" \tx \t", "x \t", " \tx"}, {" \t", "", ""}, {"", "", ""}}) {
        std::string s = text;
        CLumeString::TrimLeft(s, "\t ");
        EXPECT_EQ(s, left);
        s = text;
        CLumeString::TrimRight(s, "\t ");
        EXPECT_EQ(s, right);
    }
}

TEST(LumeString, ReplacesAsIfSearchingAnewFromTheStart) {
    EXPECT_EQ(Replaced(CLumeString::ReplaceIgnoreCase, "Hello $(NAME) and $(name)", "$(Name)", "X"), "Hello X and X");
    EXPECT_EQ(Replaced(CLumeString::ReplaceIgnoreCase, "a", "A", "AA"), "AA");
    EXPECT_EQ(Replaced(CLumeString::ReplaceIgnoreCase, "text", "", "X"), "text");
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

TEST(LumeString, InsertsValuesThatHoldTheTokenJustOnce) {
    const auto replaced = [](const char* value) {
        return Replaced(CLumeString::ReplaceTokenIgnoreCase, "$(NAME)-$(Na$(name)me)", "$(Name)", value);
    };
    EXPECT_EQ(replaced("$(name)$(NAME)"), "$(name)$(NAME)-$(Na$(name)$(NAME)me)");
    EXPECT_EQ(replaced("$"), "$-$(Na$me)");
    EXPECT_EQ(replaced(""), "-");
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
