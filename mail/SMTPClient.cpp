#include "mail/SMTPClient.h"

#include <istream>
#include <streambuf>

#include <curl/curl.h>

#include "mail/HeaderLines.h"
#include "mail/MailEnvelope.h"
#include "mail/MailPayload.h"
#include "mail/SMTPClientTrace.h"
#include "mail/SmtpTransfer.h"
#include "platform/WithoutPassword.h"

// NOLINTBEGIN(performance-unnecessary-value-param): the signature is given
int CSMTPClient::SendMail(CLumeString sender, const CSmtpMessage& message, CLumeString server, unsigned short port,
                          CLumeString userName, CLumeString password, SmtpAuthentication authentication, bool useTls) {
    // NOLINTEND(performance-unnecessary-value-param)
    EM_TRACE(3, SMTP_CLIENT_TAG "curl_version_info->version_num: 0x%x",
             curl_version_info(CURLVERSION_NOW)->version_num);
    if (HasControlCharacter(server) || server.find(' ') != std::string::npos) {
        EM_TRACE(1, SMTP_CLIENT_TAG "ERROR! Unusable server name: \"%s\"", Printable(WithoutPassword(server)).c_str());
        return CURLE_URL_MALFORMAT;
    }
    CSmtpTransfer transfer(stopping_);
    if (!transfer) {
        EM_TRACE(1, SMTP_CLIENT_TAG "ERROR! Failed to curl_easy_init!");
        return CURLE_FAILED_INIT;
    }
    transfer.SetServer(server, port, useTls);
    const CMailEnvelope envelope(sender, message);
    if (!envelope.HasRecipients()) {
        EM_TRACE(1, SMTP_CLIENT_TAG "ERROR! The mail has no usable recipient!");
        return CURLE_SEND_ERROR;
    }
    transfer.SetEnvelope(envelope);
    transfer.SetPayload(BuildMailPayload(envelope, message));
    if (authentication == SmtpAuthentication::Login) {
        transfer.SetLogin(userName, password);
    }
    return transfer.Perform();
}

std::size_t CSMTPClient::read_callback(void* buffer, std::size_t size, std::size_t count, void* stream) {
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

std::string CSMTPClient::encode(const std::string& text) {
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
