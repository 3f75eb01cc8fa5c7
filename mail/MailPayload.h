#pragma once

#include <string>

#include "mail/MailEnvelope.h"
#include "mail/SmtpMessage.h"

/// The mail as it is uploaded: header lines, an empty line, the text and a line feed. Header lines end with a single
/// line feed; the upload sends each line with CR LF (see `CSMTPClient::read_callback`). A sender without a display name
/// has no line end of its own, so the next header line follows on the same line.
std::string BuildMailPayload(const CMailEnvelope& envelope, const CSmtpMessage& message);
