// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "mail/message/SmtpMessageHeader.h"

/// `text` with CR LF for every line feed that does not follow a carriage return.
std::string ToCrLf(std::string_view text);

/// One mail to be sent: header and message text. A value; the text always has CR LF line ends.
class CSmtpMessage : public CSmtpMessageHeader {
public:
    const std::string& Text() const { return text_; }
    void SetText(std::string_view text) { text_ = ToCrLf(text); }

    /// Starts afresh with a whole mail: header lines, an empty line, the message text. Of the header it takes FROM, TO,
    /// CC, BCC, REPLY-TO, SUBJECT, X-PRIORITY and IMPORTANCE; any other line, or one without a colon, is skipped.
    /// @return false, and nothing changed, when `text` is null
    bool SetSmtpMessage(const char* text);

private:
    static std::string Trim(std::string_view text);
    void SetHeaderLine(std::string_view line);

    std::string text_;
};
