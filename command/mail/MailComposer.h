// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "command/link/ModuleLink.h"
#include "mail/message/SmtpMessage.h"
#include "mail/smtp/MailServer.h"

/// A mail server that has a host, and its number, 1 or 2.
struct NumberedServer {
    unsigned number;
    MailServer server;

    std::string Title() const;
};

/// Reads the settings of the mail servers, in the order in which the module tries them. Those without a host are left
/// out, as the module does.
/// @throw CAgentError when the settings cannot be read
std::vector<NumberedServer> ReadMailServers(CIModuleLink& link);

/// Composes the mail that the module's test mail is, without "TEST MAIL: ", from the settings as they are.
/// @param update  about updates instead of a component
/// @param language  instead of the one that is set
CSmtpMessage ComposeMail(CIModuleLink& link, bool update, std::optional<std::uint16_t> language);
