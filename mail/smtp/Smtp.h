// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>

#include "mail/message/SmtpMessage.h"
#include "mail/smtp/MailServer.h"

/// Sends a mail with the settings of one server. Any thread.
class CSmtp {
public:
    /// @param stopping  as of CSMTPClient
    explicit CSmtp(const std::atomic<bool>* stopping = nullptr) : stopping_(stopping) {}

    /// Makes libcurl ready for transfers. Optional, but a process that exits while the first of them does it, on a
    /// thread of the module, may crash.
    static void Prepare();

    /// Traces the mail and hands it to `CSMTPClient::SendMail`.
    /// @return the result of `CSMTPClient::SendMail`
    int SendMail(const std::string& sender, const CSmtpMessage& message, const MailServer& server);

    /// The same, with the server's values one by one. A null text is the empty text; a user name, even an empty one,
    /// asks for log-in.
    int SendMail(const char* sender, const CSmtpMessage& message, const char* server, unsigned short port,
                 const char* userName, const char* password, bool useTls);

private:
    const std::atomic<bool>* stopping_;
};
