// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "agent/core/Json.h"

class SipJson;

/// One command of a message, as the agent compares and builds it; what was not given is empty.
struct Command {
    std::optional<std::uint32_t> oc, oe, oi, ca, st, mi;
    std::string data;  // the JSON text of "DA"
};

/// The values of a command that the operator may write, and where each is kept.
struct CommandMember {
    const char* key;
    std::optional<std::uint32_t> Command::*value;
};
std::span<const CommandMember> CommandMembers();

/// A command of these members; "DA" is left out when `data` is empty.
Command MakeCommand(std::uint32_t operation, std::uint32_t extension = 0, std::string data = {});

/// What is answered, or told, of one object; with 0, of all.
Command MakeObjectCommand(std::uint32_t operation, std::uint32_t object, std::string data);

/// Makes the message with this one command.
/// @throw CAgentError when its data are nested too deeply
void BuildMessage(const Command& command, SipJson& message);

/// Reads a number as messages write it: decimal, "0x" hexadecimal, or octal after a leading "0".
/// @return nothing unless all of the text is one number below 2^32
std::optional<std::uint32_t> ParseNumber(std::string_view text);

/// As ParseNumber; a JSON number is taken as well.
std::optional<std::uint32_t> ReadNumber(const CRapidJsonUtil::value& value);

/// Reads a command that the operator wrote. Its numbers are for ReadNumber.
/// @throw CAgentError for a member that no command has, and for a number that is none
Command ParseCommand(const CRapidJsonUtil::value& object);

/// Reads the command at `index` of a message; empty when the message has none. Rubbish reads as not given.
Command CurrentCommand(std::string_view message, int index);
Command CurrentCommand(CRapidJsonUtil::value& message, int index);

/// @return the command at `index` of a message, null when the message lacks any part of the way down to it
CRapidJsonUtil::value* FindCommand(CRapidJsonUtil::value& message, int index);

/// @return the message {"SIP":{"V":1,"CMD":[...]}} with this one command
std::string MessageText(const Command& command);

/// @return the message as JSON; "null" when it is nested too deeply to be printed
std::string MessageText(const SipJson& message);

/// True when `command` has every value that `pattern` gives. "OE", "OI", "CA" and "MI" read as 0 where a command leaves
/// them out, as their readers take them.
bool Matches(const Command& pattern, const Command& command);
