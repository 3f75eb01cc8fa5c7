// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/// Prints a line to standard error; in a unit of systemd, with its priority before it: 3 error, 4 warning, 5 notice, 6
/// information (sd-daemon(3)). Any thread.
void Journal(int priority, std::string_view line);
