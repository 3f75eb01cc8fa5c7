#pragma once

#include <optional>
#include <span>
#include <string>

#include "agent/Agent.h"

/// What the operator asked for.
struct CommandLine {
    AgentSettings agent;
    std::string state;
    std::optional<std::string> scenario;  // "-" is standard input; the console without one
    std::string transcript = "-";         // "-" is standard output
    std::optional<std::string> traceFile;
    std::optional<std::string> traceLevel;
    std::string wav;      // empty: none; with one of these two the agent has a speaker
    std::string portLog;  // empty: none
    bool story = false;
    bool help = false;
};

/// @throw CAgentError saying what is right
CommandLine ParseCommandLine(int argc, char** argv);

extern const char* const kUsage;
