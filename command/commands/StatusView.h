// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "command/commands/CommandContext.h"

/// @param json  the object of "em-alert --json status"
/// @return a table of the components, and what there is besides
std::string StatusText(const CCommandContext& context, const std::string& json);

/// @param json  one component of that object
std::string ComponentLine(const CCommandContext& context, const CRapidJsonUtil::value& component);

/// @param json  an array of pending alerts
std::string PendingText(const CCommandContext& context, const std::string& json);
