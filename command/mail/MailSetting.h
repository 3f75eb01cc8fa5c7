// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "command/link/ModuleLink.h"

/// Asks the module for a value of its settings file.
/// @param server  1 or 2 for a value of a mail server, 0 for others
/// @return the answer; its status tells whether there is such a value
/// @throw CAgentError when the file is damaged or cannot be read: it has no values then, but might have had
Command ReadMailSetting(CIModuleLink& link, std::uint32_t id, unsigned server = 0);

/// The same for a text, empty when it is not set.
std::string MailSettingText(CIModuleLink& link, std::uint32_t id, unsigned server = 0);

/// The same for a number, nothing when it is not set.
std::optional<std::uint32_t> MailSettingNumber(CIModuleLink& link, std::uint32_t id, unsigned server = 0);

/// @return the text in the data of an answer, nothing when there is none
std::optional<std::string> AnswerText(const Command& answer);
std::optional<std::uint32_t> AnswerNumber(const Command& answer);

/// @return why a value was not written, in the module's words where it said something
std::string WhyNotWritten(const ModuleAnswer& answer);
