// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "agent/core/Command.h"

struct TranscriptEntry;

/// Tells an entry as a sentence with the names that people use, behind the time since the start of the run. Long data
/// is cut, and a mail password is hidden.
/// @return one line with its newline
std::string TellStory(const TranscriptEntry& entry, long long milliseconds);

/// @return a command's status in words, such as "status 6 (failed)"
std::string StatusText(std::uint32_t status);
