#include "mail/LumeString.h"

#include <chrono>
#include <stdexcept>

#include <gtest/gtest.h>

template class CLumeStringT<std::string, char>;  // every operation compiles, used or not

namespace {

using Tokens = std::vector<std::string>;

std::string Replaced(std::string target, const std::string& find, const std::string& replacement) {
    CLumeString::ReplaceIgnoreCase(target, find, replacement);
    return target;
}

std::string TokenReplaced(std::string target, const std::string& token, const std::string& value) {
    CLumeString::ReplaceTokenIgnoreCase(target, token, value);
    return target;
}

/// The replacement as its contract words it.
std::string ReplacedAnewFromTheStart(std::string target, std::string find, const std::string& replacement) {
    const auto lower = [](std::string& s) { std::transform(s.begin(), s.end(), s.begin(), ::tolower); };
    std::string searched = target;
    lower(searched);
    lower(find);
    for (std::size_t p; (p = searched.find(find)) != std::string::npos;) {
        target.replace(p, find.size(), replacement);
        searched.replace(p, find.size(), replacement);
    }
    return target;
}

}  // namespace

TEST(LumeString, SplitsTheWholeString) {
    const struct {
        const char* text;
        const char* delims;
        Tokens tokens;
    } cases[] = {
        {"a,,b", ",", {"a", "", "b"}}, {"a,", ",", {"a", ""}}, {"", ",", {""}},       {"a;b c", "; ", {"a", "b", "c"}},
        {",", ",", {"", ""}},          {"a b", "", {"a b"}},   {"a", nullptr, {"a"}},
    };
    for (const auto& c : cases) {
        Tokens tokens{"old"};
        EXPECT_TRUE(CLumeString(c.text).Split(tokens, c.delims));
        EXPECT_EQ(tokens, c.tokens) << c.text;
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
        pos = 4;
        EXPECT_THROW(CLumeString::Split(token, "a;b", delims, pos), std::out_of_range);
    }
    EXPECT_THROW(CLumeString::Split(token, "a;b", ";", pos), std::out_of_range);
}

TEST(LumeString, TrimsEachEndByItself) {
    for (const char* text : {" \tx \t", "x", " \t", ""}) {
        std::string left = text;
        std::string right = text;
        CLumeString::TrimLeft(left, "\t ");
        CLumeString::TrimRight(right, "\t ");
        const bool hasX = std::string(text).find('x') != std::string::npos;
        EXPECT_EQ(left, hasX ? std::string(text).substr(std::string(text).find('x')) : "");
        EXPECT_EQ(right, hasX ? std::string(text).substr(0, std::string(text).find('x') + 1) : "");
    }
}

TEST(LumeString, ReplacesAsIfSearchingAnewFromTheStart) {
    EXPECT_EQ(Replaced("Hello $(NAME) and $(name)", "$(Name)", "X"), "Hello X and X");
    EXPECT_EQ(Replaced("a", "A", "AA"), "AA");  // upper case is not found in what was inserted
    EXPECT_EQ(Replaced("aabb", "ab", ""), "");
    EXPECT_EQ(Replaced("text", "", "X"), "text");

    // All short texts over a small alphabet: matches overlap, and arise where inserted text meets its surroundings.
    const std::string alphabet = "aBb";
    const char* finds[] = {"a", "ab", "aBa", "bb"};
    const char* replacements[] = {"", "A", "B", "c", "cdE", "Ab"};
    for (int n = 0; n < 6561; ++n) {
        std::string text;
        for (int digits = n, i = 0; i < 8; ++i, digits /= 3) {
            text += alphabet[static_cast<std::size_t>(digits % 3)];
        }
        for (const std::string find : finds) {
            for (const std::string replacement : replacements) {
                ASSERT_EQ(Replaced(text, find, replacement), ReplacedAnewFromTheStart(text, find, replacement))
                    << text << " " << find << " " << replacement;
            }
        }
    }
}

TEST(LumeString, InsertsValuesThatHoldTheTokenJustOnce) {
    EXPECT_EQ(TokenReplaced("$(NAME)-$(name)", "$(Name)", "$(name)$(NAME)"), "$(name)$(NAME)-$(name)$(NAME)");
    EXPECT_EQ(TokenReplaced("$(Na$(Name)me)", "$(Name)", "$"), "$(Na$me)");
    EXPECT_EQ(TokenReplaced("$(Na$(Name)me)", "$(Name)", ""), "");
    EXPECT_EQ(TokenReplaced("x", "", "y"), "x");
}

TEST(LumeString, ReplacesInLinearTime) {
    std::string target;
    for (int i = 0; i < 100000; ++i) {
        target += "some text $(NAME)";
    }
    const auto start = std::chrono::steady_clock::now();
    CLumeString::ReplaceIgnoreCase(target, "$(name)", "a longer value");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));  // rescanning takes many minutes
    EXPECT_EQ(target.size(), 100000 * std::string("some text a longer value").size());
}

TEST(LumeString, FormatsTextsOfAnyLengthAndItsOwnContent) {
    CLumeString text;
    text.Format("%s-%d", "key", 7);
    EXPECT_EQ(text, "key-7");
    text.AppendFormat("|%s", text.c_str());
    EXPECT_EQ(text, "key-7|key-7");
    text.Format("<%s>", text.c_str());
    EXPECT_EQ(text, "<key-7|key-7>");
    text.Format("%5000d", 1);
    EXPECT_EQ(text, std::string(4999, ' ') + "1");
    text.Format("%s", "");
    EXPECT_EQ(text, "");
}
