// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/traces/TextOutput.h"
#include "command/terminal/ConsoleWait.h"

/// The command's two ends: lines come in on standard input, text goes out on standard output.
class CIConsoleTerminal : public CITextOutput {
public:
    /// Waits for a line. One thread.
    /// @return nothing at the end of the input, and once a signal has asked for the end
    virtual std::optional<std::string> ReadLine() = 0;

    /// Waits for a line that nobody may see. From a pipe it is the next one.
    /// @return nothing as ReadLine, and after an interrupt
    virtual std::optional<std::string> ReadSecret(const std::string& prompt) = 0;

    /// Shows people what is under way, in place of what was shown before; the next text to be printed replaces it.
    /// @param text  less than a line; empty to take it off
    virtual void ShowProgress(std::string_view text) = 0;
};

/// Finds what may stand in place of the last word of an unfinished line.
using ConsoleCompletion = std::vector<std::string> (*)(std::string_view line);

/// Takes the progress off the screen.
constexpr const char* kNoProgress = "\r\033[K";

/// True when people sit at both standard input and standard output.
bool IsAtTerminal();

/// @return a terminal with line editing, history and completion
std::unique_ptr<CIConsoleTerminal> MakeEditingTerminal(CConsoleWait& wait, ConsoleCompletion complete,
                                                       const std::string& historyFile);

/// @return one for pipes, files and single commands; progress goes to standard error, where that is a terminal
std::unique_ptr<CIConsoleTerminal> MakePlainTerminal(CConsoleWait& wait);

/// Reads a line from the terminal at standard input, which does not show it.
/// @return nothing after an interrupt, at the end of the input, and once a signal has asked for the end
std::optional<std::string> ReadHiddenLine(CConsoleWait& wait, const std::string& prompt);
