// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "mail/message/SmtpMessage.h"
#include "mail/smtp/MailEnvelope.h"

/// The mail as it is uploaded: header lines, an empty line, the text and a line feed. Header lines end with a single
/// line feed; the upload sends each line with CR LF (see ReadPayload). A sender without a display name
/// has no line end of its own, so the next header line follows on the same line.
std::string BuildMailPayload(const CMailEnvelope& envelope, const CSmtpMessage& message);

/// A read callback for libcurl: hands it the next line of a payload with CR LF behind it; a line that exceeds the
/// offered buffer comes in pieces.
/// @param stream  a std::istringstream over the payload
/// @return the number of bytes, 0 at the end, CURL_READFUNC_ABORT when a buffer of less than three bytes is offered
std::size_t ReadPayload(void* buffer, std::size_t size, std::size_t count, void* stream);

/// `text` (UTF-8) as one quoted word for a header, however long it is.
std::string EncodeWord(const std::string& text);
