// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "command/commands/CommandContext.h"
#include "command/commands/CommandTable.h"

/// Splits a line as the console reads it: words with blanks stand in double quotes, \" is a quotation mark.
/// @throw CUsageError when a closing quotation mark is missing
std::vector<std::string> SplitWords(std::string_view line);

/// Runs one command.
/// @param words  its name and what follows
/// @throw CUsageError when they are no command line, CAgentError for what went wrong
Outcome RunCommand(CCommandContext& context, const std::vector<std::string>& words);

/// The operator's prompt: one command a line, until "quit", the end of the input, or a signal that asks for the end. No
/// command ends it. At a terminal a failure is told there, else on standard error.
/// @return false when a command failed and no people were there to see it
bool RunConsole(CCommandContext& context);
