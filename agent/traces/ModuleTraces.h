// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

/// Before anything is loaded: has the module print the results of its mails, or as much as the level says, unless the
/// environment says otherwise.
void SetTraceLevel(std::optional<unsigned> level);

/// Whether the environment names a level. No thread may change it meanwhile.
bool IsTraceLevelSet();

/// For a module that is loaded from here on. No thread may read the environment meanwhile.
void ReplaceTraceLevel(unsigned level);

/// The result of a mail that the module sent by itself.
/// @return nothing when the print is about something else
std::optional<int> MailReturnCode(const std::string& print);

/// Whether the module tells that it sends no mail about an event.
bool IsMailSkipped(const std::string& print);
