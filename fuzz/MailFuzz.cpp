// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <sstream>
#include <vector>

#include "fuzz/Fuzz.h"
#include "mail/message/HeaderLines.h"
#include "mail/smtp/MailPayload.h"
#include "mail/smtp/SMTPClient.h"

namespace {

/// What is handed to libcurl, which only doubles the dots at the starts of lines, through a buffer of that size.
std::string Upload(const std::string& payload, std::size_t bufferSize) {
    std::istringstream stream(payload);
    std::string sent;
    std::vector<char> buffer(bufferSize);
    while (const std::size_t length = CSMTPClient::read_callback(buffer.data(), 1, buffer.size(), &stream)) {
        Expect(length <= buffer.size(), "a piece fits its buffer");
        sent.append(buffer.data(), length);
    }
    return sent;
}

/// Consumes the lines of a header, which must begin as told, and nothing else.
void CheckHeader(std::string_view header, const std::vector<std::string_view>& names) {
    for (const std::string_view name : names) {
        const std::size_t end = header.find("\r\n");
        Expect(end != std::string_view::npos && header.starts_with(name), "the header has the lines it should have");
        Expect(header.substr(0, end).find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos,
               "a header line is one line");
        header.remove_prefix(end + 2);
    }
    Expect(header.empty(), "the header has no line that nobody asked for");
}

void CheckUpload(const CSmtpMessage& message) {
    const CMailEnvelope envelope(message.Sender(), message);
    for (const auto* list : {&envelope.to, &envelope.cc}) {
        Expect(std::ranges::none_of(*list, HasControlCharacter), "no address ends its command");
    }
    Expect(envelope.senderMail.find_first_of("\r\n") == std::string::npos, "the sender does not end its command");

    const std::string mail = Upload(BuildMailPayload(envelope, message), 65536);
    Expect(mail == Upload(BuildMailPayload(envelope, message), 3), "the size of the buffer does not matter");
    Expect(HasNoLoneLineFeed(mail) && mail.ends_with("\r\n"), "every line ends with CR LF");

    std::vector<std::string_view> names = {"From: "};
    if (!envelope.to.empty()) {
        names.emplace_back("To: ");
    }
    if (!envelope.cc.empty()) {
        names.emplace_back("CC: ");
    }
    names.insert(names.end(), {"Subject: =?utf-8?Q?", "MIME-Version: 1.0\r",
                               "Content-Type: text/plain; charset=utf-8\r", "Content-Transfer-Encoding: 8bit\r"});
    if (envelope.senderName.empty()) {
        names.erase(names.begin() + 1);  // joined with the line of the sender
    }
    if (message.Importance() >= 0) {
        names.insert(names.end(), {"X-Priority: ", "Importance: "});
    }
    const std::size_t end = mail.find("\r\n\r\n");
    Expect(end != std::string::npos, "an empty line ends the header");
    CheckHeader(std::string_view(mail).substr(0, end + 2), names);
    // Line ends of the text are CR LF before the upload adds its own.
    std::string text;
    std::string_view body = std::string_view(mail).substr(end + 4);
    for (std::size_t at = body.find("\r\n"); at != std::string_view::npos; at = body.find("\r\n")) {
        text.append(body.substr(0, at)) += '\n';
        body.remove_prefix(at + 2);
    }
    Expect(text == message.Text() + "\n", "the text arrives as it is");
}

void CheckRendering(const CSmtpMessage& message) {
    std::vector<std::string_view> names;
    const auto add = [&](std::string_view name, bool isThere) {
        if (isThere) {
            names.push_back(name);
        }
    };
    add("From: ", !message.Sender().empty());
    add("To: ", !message.Recipients().empty());
    add("Cc: ", !message.RecipientsCc().empty());
    add("Reply-To: ", !message.ReplyTo().empty());  // be it by one empty entry
    add("Subject: ", !message.Subject().empty());
    add("X-Priority: ", message.Importance() >= 0);
    add("Importance: ", message.Importance() >= 0);
    CheckHeader(message.GetMessageHeader(), names);
}

}  // namespace

/// A whole mail as text.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = CFuzzInput(data, size).CText();
    CSmtpMessage message;
    Expect(message.SetSmtpMessage(text.c_str()), "a mail is taken");
    Expect(HasNoLoneLineFeed(message.Text()), "the lines of the text end with CR LF");
    Expect(std::ranges::count(message.Text(), '\n') <= std::ranges::count(text, '\n'),
           "the text has no more lines than the mail");
    CheckUpload(message);
    CheckRendering(message);
    return 0;
}
