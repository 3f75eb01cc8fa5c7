// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "command/mail/MailComposer.h"
#include "command/mail/MailReport.h"
#include "mail/smtp/SmtpDialogue.h"

/// Sends a mail through one server alone, from this process, as the module would.
/// @param listener  hears what client and server say, credentials masked; may be empty
ServerResult SendThrough(const NumberedServer& server, const CSmtpMessage& mail, CSmtpDialogue::Listener listener);
