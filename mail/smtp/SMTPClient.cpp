// SPDX-License-Identifier: Apache-2.0
#include "mail/smtp/SMTPClient.h"

#include <utility>

#include <curl/curl.h>

#include "mail/message/HeaderLines.h"
#include "mail/smtp/MailEnvelope.h"
#include "mail/smtp/MailPayload.h"
#include "mail/smtp/SmtpTransfer.h"
#include "platform/diagnostics/Trace.h"
#include "platform/diagnostics/WithoutPassword.h"

int CSMTPClient::SendMail(const std::string& sender, const CSmtpMessage& message, const MailServer& server) {
    EM_TRACE(3, "\nCSMTPClient                : curl_version_info->version_num: 0x%x",
             curl_version_info(CURLVERSION_NOW)->version_num);
    if (HasControlCharacter(server.host) || server.host.find(' ') != std::string::npos) {
        EM_TRACE(1, "\nCSMTPClient                : ERROR! Unusable server name: \"%s\"",
                 Printable(WithoutPassword(server.host)).c_str());
        return CURLE_URL_MALFORMAT;
    }
    CSmtpTransfer transfer(stopping_);
    if (!transfer) {
        EM_TRACE(1, "\nCSMTPClient                : ERROR! Failed to curl_easy_init!");
        return CURLE_FAILED_INIT;
    }
    transfer.SetServer(server);
    const CMailEnvelope envelope(sender, message);
    if (!envelope.HasRecipients()) {
        EM_TRACE(1, "\nCSMTPClient                : ERROR! The mail has no usable recipient!");
        return CURLE_SEND_ERROR;
    }
    transfer.SetEnvelope(envelope);
    transfer.SetPayload(BuildMailPayload(envelope, message));
    if (server.logsIn) {
        transfer.SetLogin(server);
    }
    return transfer.Perform();
}

// NOLINTBEGIN(performance-unnecessary-value-param): the signature is given
int CSMTPClient::SendMail(CLumeString sender, const CSmtpMessage& message, CLumeString server, unsigned short port,
                          CLumeString userName, CLumeString password, SmtpAuthentication authentication, bool useTls) {
    // NOLINTEND(performance-unnecessary-value-param)
    return SendMail(sender, message,
                    {.host = std::move(server),
                     .port = port,
                     .logsIn = authentication == SmtpAuthentication::Login,
                     .userName = std::move(userName),
                     .password = std::move(password),
                     .useTls = useTls});
}

std::size_t CSMTPClient::read_callback(void* buffer, std::size_t size, std::size_t count, void* stream) {
    return ReadPayload(buffer, size, count, stream);
}

std::string CSMTPClient::encode(const std::string& text) {
    return EncodeWord(text);
}
