#include "mail/MailPayload.h"

#include "mail/HeaderLines.h"
#include "mail/SMTPClient.h"
#include "mail/SMTPClientTrace.h"

namespace {

void AddSender(CHeaderLines& lines, const CMailEnvelope& envelope) {
    if (envelope.senderName.empty()) {
        lines.AddUnfinished("From: ", envelope.senderMail);
    } else {
        lines.Add("From: ", "\"" + CSMTPClient::encode(envelope.senderName) + "\" <" + envelope.senderMail + ">");
    }
}

void AddRecipients(CHeaderLines& lines, const CMailEnvelope& envelope) {
    if (envelope.to.empty()) {
        EM_TRACE(3, SMTP_CLIENT_TAG "to_list_str empty!");
    } else {
        const std::string list = CHeaderLines::Join(envelope.to);
        EM_TRACE(3, SMTP_CLIENT_TAG "to_list_str: \"%s\"", list.c_str());
        lines.Add("To: ", list);
    }
    if (!envelope.cc.empty()) {
        const std::string list = CHeaderLines::Join(envelope.cc);
        EM_TRACE(3, SMTP_CLIENT_TAG "cc_list_str: \"%s\"", list.c_str());
        lines.Add("CC: ", list);
    }
}

}  // namespace

std::string BuildMailPayload(const CMailEnvelope& envelope, const CSmtpMessage& message) {
    CHeaderLines lines("\n");
    AddSender(lines, envelope);
    AddRecipients(lines, envelope);

    EM_TRACE(3, SMTP_CLIENT_TAG "message_subject: \"%s\"", message.Subject().c_str());
    lines.Add("Subject: ", CSMTPClient::encode(CHeaderLines::OneLine(message.Subject())));
    lines.Add("MIME-Version: 1.0");
    lines.Add("Content-Type: text/plain; charset=utf-8");
    lines.Add("Content-Transfer-Encoding: 8bit");
    lines.AddImportance(message.Importance());

    EM_TRACE(3, SMTP_CLIENT_TAG "message_body: \"%s\"", message.Text().c_str());
    std::string payload = lines.Text() + "\n" + message.Text() + "\n";
    EM_TRACE(3, SMTP_CLIENT_TAG "message: \"%s\"", payload.c_str());
    return payload;
}
