// SPDX-License-Identifier: Apache-2.0
#include "mail/smtp/MailPayload.h"

#include <sstream>
#include <streambuf>

#include <curl/curl.h>

#include "mail/message/HeaderLines.h"
#include "mail/text/LumeString.h"
#include "platform/diagnostics/Trace.h"

namespace {

void AddSender(CHeaderLines& lines, const CMailEnvelope& envelope) {
    if (envelope.senderName.empty()) {
        lines.AddUnfinished("From: ", envelope.senderMail);
    } else {
        lines.Add("From: ", "\"" + EncodeWord(envelope.senderName) + "\" <" + envelope.senderMail + ">");
    }
}

void AddRecipients(CHeaderLines& lines, const CMailEnvelope& envelope) {
    if (envelope.to.empty()) {
        EM_TRACE(3, "\nCSMTPClient                : to_list_str empty!");
    } else {
        const std::string list = CHeaderLines::Join(envelope.to);
        EM_TRACE(3, "\nCSMTPClient                : to_list_str: \"%s\"", list.c_str());
        lines.Add("To: ", list);
    }
    if (!envelope.cc.empty()) {
        const std::string list = CHeaderLines::Join(envelope.cc);
        EM_TRACE(3, "\nCSMTPClient                : cc_list_str: \"%s\"", list.c_str());
        lines.Add("CC: ", list);
    }
}

}  // namespace

std::string BuildMailPayload(const CMailEnvelope& envelope, const CSmtpMessage& message) {
    CHeaderLines lines("\n");
    AddSender(lines, envelope);
    AddRecipients(lines, envelope);

    EM_TRACE(3, "\nCSMTPClient                : message_subject: \"%s\"", message.Subject().c_str());
    lines.Add("Subject: ", EncodeWord(CHeaderLines::OneLine(message.Subject())));
    lines.Add("MIME-Version: 1.0");
    lines.Add("Content-Type: text/plain; charset=utf-8");
    lines.Add("Content-Transfer-Encoding: 8bit");
    lines.AddImportance(message.Importance());

    EM_TRACE(3, "\nCSMTPClient                : message_body: \"%s\"", message.Text().c_str());
    std::string payload = lines.Text() + "\n" + message.Text() + "\n";
    EM_TRACE(3, "\nCSMTPClient                : message: \"%s\"", payload.c_str());
    return payload;
}

std::size_t ReadPayload(void* buffer, std::size_t size, std::size_t count, void* stream) {
    constexpr std::size_t kLineEnd = 2;  // CR LF
    constexpr auto kEnd = std::char_traits<char>::eof();

    const std::size_t room = size * count;
    if (room == 0 || stream == nullptr) {
        return 0;
    }
    std::streambuf& source = *static_cast<std::istringstream*>(stream)->rdbuf();
    if (source.sgetc() == kEnd) {
        return 0;
    }
    if (room <= kLineEnd) {
        return CURL_READFUNC_ABORT;
    }
    char* const out = static_cast<char*>(buffer);
    std::size_t length = 0;
    while (length < room - kLineEnd && source.sgetc() != kEnd && source.sgetc() != '\n') {
        out[length++] = static_cast<char>(source.sbumpc());
    }
    if (source.sgetc() != kEnd && source.sgetc() != '\n') {
        return length;  // the line goes on
    }
    source.sbumpc();
    out[length++] = '\r';
    out[length++] = '\n';
    return length;
}

std::string EncodeWord(const std::string& text) {
    CLumeString word = "=?utf-8?Q?";
    for (const char c : text) {
        if (c == ' ') {
            word += '_';
        } else if (c == '=' || static_cast<unsigned char>(c) >= 0x80) {
            word.AppendFormat("=%02X", static_cast<unsigned char>(c));
        } else {
            word += c;
        }
    }
    return word + "?=";
}
