// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

/// Runs a program to its end.
/// @param arguments  the program, looked for in the path, and its arguments
/// @param input  the file that is its standard input
/// @return its exit status; -1 when it did not run or was ended by a signal
int RunProgram(std::vector<std::string> arguments, const std::string& input = "/dev/null");
