// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

/// Whom the alert mails come from, and whom they go to.
struct MailAddresses {
    std::string senderAddress;
    std::string senderName;    ///< display name, may be empty
    std::string recipients;    ///< addresses, separated by any of " ,;\n"
    std::string recipientsCc;  ///< the same
};

/// What the alert mails say.
struct MailTemplates {
    std::string alertSubject;  ///< template of the status mail
    std::string alertMessage;
    std::string updateSubject;  ///< template of the update mail
    std::string updateMessage;
    std::uint8_t importance = 0;  ///< 1 low, 2 normal, 3 high; any other value: depending on the component's status
    std::uint16_t language = 0;   ///< Windows-style language id of translated texts, dates and times
};

/// What an administrator configures of the alert mails. A value; whoever composes a mail works on one copy of it.
struct MailSettings : MailAddresses, MailTemplates {};
