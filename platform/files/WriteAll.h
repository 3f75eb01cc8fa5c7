// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/// Writes a text from the file's offset on, as many calls as that takes.
/// @return 0, or the errno value of the failed write, which may have left a part of the text behind
int WriteAll(int file, std::string_view text);
