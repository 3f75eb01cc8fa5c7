// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

/// Reads a mail from a file or a pipe, and waits for whoever writes it.
/// @param path  "-" for standard input, from where that stands
/// @param goesOn  is asked before each piece, and about ten times a second while none comes; false ends the wait
/// @return the mail in UTF-8, without a byte-order mark
/// @throw CAgentError when it cannot be read, is empty, holds more than 64 MiB or what is no UTF-8; or broken off
std::string ReadMailFile(const std::string& path, const std::function<bool()>& goesOn);
