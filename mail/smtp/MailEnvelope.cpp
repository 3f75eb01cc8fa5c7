// SPDX-License-Identifier: Apache-2.0
#include "mail/smtp/MailEnvelope.h"

#include <algorithm>

#include "mail/message/HeaderLines.h"
#include "platform/diagnostics/Trace.h"

namespace {

std::vector<std::string> UsableAddresses(const std::vector<std::string>& addresses) {
    std::vector<std::string> usable;
    for (const std::string& address : addresses) {
        if (!address.empty() && !HasControlCharacter(address)) {
            usable.push_back(address);
        } else {
            EM_TRACE(1, "\nCSMTPClient                : ERROR! Unusable recipient left out: \"%s\"",
                     Printable(address).c_str());
        }
    }
    return usable;
}

}  // namespace

CMailEnvelope::CMailEnvelope(std::string_view sender, const CSmtpMessage& message)
    : senderMail(CHeaderLines::OneLine(sender)),
      to(UsableAddresses(message.Recipients())),
      cc(UsableAddresses(message.RecipientsCc())) {
    const auto open = senderMail.find('<');
    const auto close = senderMail.find('>');
    if (open < close && close != std::string::npos) {
        senderName = senderMail.substr(0, open);
        senderMail = senderMail.substr(open + 1, close - open - 1);
    }
    if (senderName.empty()) {
        EM_TRACE(3, "\nCSMTPClient                : senderMail: %s", senderMail.c_str());
    } else {
        EM_TRACE(3, "\nCSMTPClient                : senderMail: \"%s\"", senderMail.c_str());
        EM_TRACE(3, "\nCSMTPClient                : senderName: \"%s\"", senderName.c_str());
    }
}
