// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

/// What stands before and behind a command's name.
struct ProgramOptions {
    std::string module;                 ///< empty for the installed one
    std::optional<std::string> socket;  ///< of the service; not given, the usual one unless a module is given
    std::string state;                  ///< where alert settings and history are kept; empty for the user's place
    std::optional<unsigned> traceLevel;
    std::string traceFile;
    bool withoutTraceTimes = false;
    bool json = false;
    bool version = false;
    bool help = false;
    bool man = false;                ///< print the manual page, for the build
    bool complete = false;           ///< print what may stand in place of the last of the words, for shells
    std::vector<std::string> words;  ///< the command; empty for the console
};

/// @throw CUsageError saying what is right
ProgramOptions ParseProgramOptions(int argc, char** argv);

/// @return the text of --help
std::string HelpText();

/// @return the manual page em-alert(1), as mdoc
std::string ManualPage();
