// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "command/mail/MailComposer.h"
#include "command/mail/MailReport.h"
#include "mail/smtp/SmtpDialogue.h"

/// @return a sentence, as the module's, for each recipient who is left out of the envelope
std::vector<std::string> LeftOutRecipients(const CSmtpMessage& mail);

/// Sends a mail through one server alone, from this process, as the module would.
/// @param listener  hears what client and server say, credentials masked, on a thread of the transfer's; may be empty
/// @param goesOn  is asked about ten times a second; false breaks the transfer off, within about a second
/// @throw CAgentError when it was broken off
ServerResult SendThrough(const NumberedServer& server, const CSmtpMessage& mail, CSmtpDialogue::Listener listener,
                         const std::function<bool()>& goesOn);
