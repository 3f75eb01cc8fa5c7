// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

#include "mail/message/SmtpMessage.h"
#include "mail/smtp/MailServer.h"
#include "mail/text/LumeString.h"

/// Delivers one mail to one SMTP server. Holds nothing between calls; any thread.
class CSMTPClient {
public:
    enum class SmtpAuthentication {
        None,
        Login,  ///< with user name and password
    };

    /// @param stopping  ends a running transfer within about a second once it is true; null when nothing does. Not
    ///                  owned.
    explicit CSMTPClient(const std::atomic<bool>* stopping = nullptr) : stopping_(stopping) {}

    /// Sends `message` to its To and Cc addresses. The mail is sent when the server takes one recipient at least; each
    /// refused one is traced. Takes 16 seconds at most, the look-up of the server's name included.
    /// @param sender  an address, or a display name followed by "<", the address and ">"
    /// @return the libcurl result code, 0 when the server has taken the mail; CURLE_SEND_ERROR (55) when no
    ///         recipient is usable, CURLE_URL_MALFORMAT (3) for a server text with blanks or control characters,
    ///         CURLE_ABORTED_BY_CALLBACK (42) when stopped
    int SendMail(const std::string& sender, const CSmtpMessage& message, const MailServer& server);

    /// The same, with the server's values one by one.
    int SendMail(CLumeString sender, const CSmtpMessage& message, CLumeString server, unsigned short port,
                 CLumeString userName, CLumeString password, SmtpAuthentication authentication, bool useTls);

    // The payload's (MailPayload.h), under the names of old.
    static std::size_t read_callback(void* buffer, std::size_t size, std::size_t count, void* stream);
    static std::string encode(const std::string& text);

private:
    const std::atomic<bool>* stopping_;
};
