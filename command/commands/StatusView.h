// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "command/commands/CommandContext.h"

/// @param json  the object of "em-alert --json status"
/// @param withNext  a column tells when each is checked next
/// @return a table of the components, and what there is besides
std::string StatusText(const CCommandContext& context, const std::string& json, bool withNext);

/// The same for a screen that is cleared before: lines are cut at its columns, components that are OK give way to those
/// that are not, and where there is no room for the rest, its first lines remain. The last line has no end, which would
/// scroll a full screen.
std::string ScreenText(const CCommandContext& context, const std::string& json, std::size_t rows, std::size_t columns);

/// @param json  one component of that object
std::string ComponentLine(const CCommandContext& context, const CRapidJsonUtil::value& component);

/// @param json  an array of pending alerts
std::string PendingText(const CCommandContext& context, const std::string& json);
