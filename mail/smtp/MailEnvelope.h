// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mail/message/SmtpMessage.h"

/// Who sends a mail and who gets it, as the SMTP commands and the header name them. Bcc addresses are not used.
struct CMailEnvelope {
    /// Traces the sender, and each address that is left out because it is empty or holds a control character: it could
    /// end the command that carries it.
    CMailEnvelope(std::string_view sender, const CSmtpMessage& message);

    bool HasRecipients() const { return !to.empty() || !cc.empty(); }

    std::string senderMail;
    std::string senderName;  ///< the display name; empty when the sender is a mere address
    std::vector<std::string> to;
    std::vector<std::string> cc;
};
