// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <span>
#include <string>

#include "agent/core/Agent.h"

/// What the operator asked for.
struct CommandLine {
    AgentSettings agent;
    std::string state;                      // empty: none, which is enough for a console
    std::optional<std::string> scenario;    // "-" is standard input; the console without one
    std::optional<std::string> transcript;  // "-" is standard output, the default with a scenario
    std::optional<std::string> traceFile;
    std::optional<std::string> traceLevel;
    std::string wav;      // empty: none; with one of these two the agent has a speaker
    std::string portLog;  // empty: none
    bool withoutTraceTimes = false;
    bool story = false;
    bool help = false;
    bool version = false;
};

/// @throw CAgentError saying what is right
CommandLine ParseCommandLine(int argc, char** argv);

extern const char* const kUsage;
