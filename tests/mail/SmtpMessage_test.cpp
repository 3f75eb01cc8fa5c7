// SPDX-License-Identifier: Apache-2.0
#include "mail/message/SmtpMessage.h"

#include <algorithm>

#include "support/DataRows.h"
#include "support/TraceCapture.h"

/// Of a host that speaks Turkish, where "I" is not the capital of "i".
extern "C" int strncasecmp(const char* a, const char* b, std::size_t size) noexcept {
    const auto isSame = [](char x, char y) { return x == y || ((x ^ y) == 0x20 && (x | 0x20) != 'i'); };
    return std::equal(a, a + size, b, isSame) ? 0 : 1;
}

namespace {

std::string Joined(const std::vector<std::string>& list) {
    std::string joined;
    for (const std::string& entry : list) {
        joined += entry + ";";
    }
    return joined + "/";
}

/// All that a message holds, with "/" behind each part and ";" behind each entry of a list.
std::string Parts(const CSmtpMessage& mail) {
    return mail.Sender() + "/" + Joined(mail.Recipients()) + Joined(mail.RecipientsCc()) +
           Joined(mail.RecipientsBcc()) + Joined(mail.ReplyTo()) + mail.Subject() + "/" +
           std::to_string(mail.Importance()) + "/" + mail.Text();
}

}  // namespace

TEST(SmtpMessage, ReadsMailsAsListed) {
    CSmtpMessage mail;  // one for all: each starts it afresh
    for (auto row : DataRows(EM_TEST_DATA "/messages.cases")) {
        row.resize(4);
        const CTraceCapture trace;
        EXPECT_TRUE(mail.SetSmtpMessage(row[0].c_str()));
        EXPECT_EQ(Parts(mail), row[1]) << row[0];
        EXPECT_EQ(mail.GetMessageHeader(), row[2]) << row[0];
        EXPECT_EQ(trace.All(), row[3]) << row[0];
    }
    EXPECT_FALSE(mail.SetSmtpMessage(nullptr));
    EXPECT_EQ(mail.GetMessageHeader(), "To: last\r\n");
}

TEST(SmtpMessage, TakesListsAndTexts) {
    const CTraceCapture trace;
    CSmtpMessage mail;
    EXPECT_EQ(mail.GetMessageHeader(), "");
    EXPECT_TRUE(mail.AddRecipients("anna; bert,,\n carl\nemil ") && mail.AddRecipientsCc("\tdora\r\nfred\r\n"));
    EXPECT_FALSE(mail.AddRecipients(nullptr) || mail.AddRecipientsCc(nullptr));
    mail.SetText("\na\nb\r\nc\r\r\n");
    EXPECT_EQ(Parts(mail), "/anna;bert;carl;emil;/dora;fred;////-1/\r\na\r\nb\r\nc\r\r\n");
    EXPECT_EQ(trace.All(), ReadFile(EM_TEST_DATA "/recipients.traces"));
    mail.SetSender("Alerts<ops>");
    mail.AddReplyTo("anna, bert");
    mail.AddReplyTo("d");
    mail.SetSubject("Hi\r\nBcc: evil");
    mail.SetExtraHeader("X-B: ", "2\n");
    mail.SetExtraHeader("X-A: ", "1");
    std::string headers;
    for (int importance = -1; importance <= 3; ++importance) {
        mail.SetImportance(importance);
        headers += mail.GetMessageHeader() + "\n";
    }
    EXPECT_EQ(headers, ReadFile(EM_TEST_DATA "/headers"));
}
