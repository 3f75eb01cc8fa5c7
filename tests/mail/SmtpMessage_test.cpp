#include "mail/SmtpMessage.h"

#include <algorithm>
#include <fstream>

#include <gtest/gtest.h>

#include "support/TraceCapture.h"

namespace {

using List = std::vector<std::string>;

CSmtpMessage Parsed(const char* text) {
    CSmtpMessage message;
    EXPECT_TRUE(message.SetSmtpMessage(text));
    return message;
}

std::string Expected(const char* name) {
    std::ifstream file(std::string(EM_TEST_DATA "/") + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TEST(SmtpMessage, SplitsRecipientLists) {
    const CTraceCapture trace;
    CSmtpMessage message;
    EXPECT_TRUE(message.AddRecipients("anna; bert,,\n carl "));
    EXPECT_TRUE(message.AddRecipientsCc("\tdora\r\n"));
    EXPECT_FALSE(message.AddRecipients(nullptr));
    EXPECT_FALSE(message.AddRecipientsCc(nullptr));
    EXPECT_EQ(message.Recipients(), (List{"anna", "bert", "carl"}));
    EXPECT_EQ(message.RecipientsCc(), List{"dora"});
    EXPECT_EQ(trace.All(), Expected("recipients.traces"));
}

TEST(SmtpMessage, RendersTheHeader) {
    CSmtpMessage message;
    EXPECT_EQ(message.GetMessageHeader(), "");
    message.SetSender("Alerts<ops>");
    message.AddRecipients("a;b");
    message.AddRecipientsCc("c");
    message.AddReplyTo("anna, bert");
    message.AddReplyTo("d");
    message.SetSubject("Hi\r\nBcc: evil");
    message.SetExtraHeader("X-B: ", "2\n");
    message.SetExtraHeader("X-A: ", "1");
    std::string headers;
    for (int importance = -1; importance <= 3; ++importance) {
        message.SetImportance(importance);
        headers += message.GetMessageHeader() + "\n";
    }
    EXPECT_EQ(headers, Expected("headers"));
}

TEST(SmtpMessage, ParsesAWholeMail) {
    const CTraceCapture trace;
    const CSmtpMessage message = Parsed(
        "From: Alerts <ops@x>\r\n To : skipped\nno colon here\n::tO:\ta b , ,c\t,\nCc: d\nTO:e\nBcc: f,g\n"
        "reply-to: anna, bert\nSUBJECT:  a: b \nX-Other: y\n:::\n \t\r\n\nline1\r\nline2\n");
    EXPECT_EQ(message.Sender(), "Alerts <ops@x>");
    EXPECT_EQ(message.Recipients(), (List{"a b", "c", "e"}));
    EXPECT_EQ(message.RecipientsCc(), List{"d"});
    EXPECT_EQ(message.RecipientsBcc(), (List{"f", "g"}));
    EXPECT_EQ(message.ReplyTo(), List{"anna, bert"});
    EXPECT_EQ(message.Subject(), "a: b");
    EXPECT_EQ(message.Importance(), CSmtpMessage::kNoImportance);
    EXPECT_EQ(message.Text(), "\r\nline1\r\nline2\r\n");
    EXPECT_EQ(message.GetMessageHeader().find('g'), std::string::npos);
    EXPECT_TRUE(trace.Has("\nCSmtpMessageHeader  : Add mail sender: \"Alerts <ops@x>\""));
    EXPECT_TRUE(trace.Has("\nCSmtpMessageHeader  : Add mail recipient Bcc: \"g\""));
}

TEST(SmtpMessage, StartsAfreshWithEachMail) {
    CSmtpMessage message = Parsed("Subject: Hi\nX-Priority: 5\n\nline1\nline2");
    EXPECT_EQ(message.Text(), "line1\r\nline2");
    EXPECT_FALSE(message.SetSmtpMessage(nullptr));
    EXPECT_EQ(message.Subject(), "Hi");
    EXPECT_TRUE(message.SetSmtpMessage("To: a"));
    EXPECT_EQ(message.GetMessageHeader() + message.Text(), "To: a\r\n");
    message.SetText("\na\nb\r\nc\r\r\n");
    EXPECT_EQ(message.Text(), "\r\na\r\nb\r\nc\r\r\n");
}

TEST(SmtpMessage, ReadsTheImportance) {
    std::ifstream list(EM_TEST_DATA "/importances");
    int rows = 0;
    for (std::string line; std::getline(list, line); ++rows) {
        std::string header = line.substr(line.find(' ') + 1);
        std::replace(header.begin(), header.end(), '|', '\n');
        EXPECT_EQ(Parsed(header.c_str()).Importance(), std::stoi(line)) << line;
    }
    EXPECT_EQ(rows, 13);
}
