#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/console/ConsoleWait.h"
#include "agent/core/TextOutput.h"

/// The console's two ends: lines come in on standard input, text goes out on standard output.
class CIConsoleTerminal : public CITextOutput {
public:
    /// Waits for a line. One thread.
    /// @return nothing at the end of the input, and once a signal has asked for the end
    virtual std::optional<std::string> ReadLine() = 0;
};

/// Finds what may stand in place of the last word of an unfinished line.
using ConsoleCompletion = std::vector<std::string> (*)(std::string_view line);

/// True when people sit at both standard input and standard output.
bool IsAtTerminal();

/// @return a terminal with line editing, history and completion for people, a plain one for pipes and files
std::unique_ptr<CIConsoleTerminal> MakeConsoleTerminal(CConsoleWait& wait, ConsoleCompletion complete);
