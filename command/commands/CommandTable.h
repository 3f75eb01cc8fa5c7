// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class CCommandContext;

/// What came of a command.
struct Outcome {
    std::string text;     ///< for people, lines with their ends
    std::string json;     ///< one value; empty when there is nothing but that it was done
    std::string failure;  ///< why it failed; empty when it did not
    bool isTold = false;  ///< all that there is to tell was printed as it came
};

/// What stands behind a command's name.
struct CommandArguments {
    std::vector<std::string> words;
    std::optional<unsigned> server;         // --server
    std::optional<std::uint16_t> language;  // --language
    bool verbose = false;                   // -v
};

/// One command: console, single commands, help, manual page and completion are all made of these rows.
struct CommandRow {
    enum class Needs { Nothing, Module, Service, Console };
    enum Option : unsigned { kNoOption = 0, kServer = 1, kLanguage = 2, kVerbose = 4 };
    using Words = std::vector<std::string>;

    std::string_view name;
    std::string_view arguments;  // as usage writes them
    std::string_view help;       // a sentence, without its end
    Needs needs;
    std::size_t fewest;  // words behind the name
    std::size_t most;
    unsigned options;
    Outcome (*run)(CCommandContext& context, const CommandArguments& arguments);
    Words (*complete)(std::span<const std::string> before);  // null when nothing can be listed
    std::string_view more;                                   // for "help COMMAND", lines with their ends
    std::string (*list)();                                   // what follows that; may be null

    std::string Usage() const;
};

std::span<const CommandRow> CommandTable();

/// @throw CUsageError for a name that no command has
const CommandRow& FindCommandRow(std::string_view name);

/// @return what may stand in place of the last word of an unfinished line of the console
std::vector<std::string> CompleteLine(std::string_view line);

/// The same for a shell's line, behind the program's name and options.
std::vector<std::string> CompleteArguments(std::string_view line);

/// @return the commands with their sentences, and the first steps
std::string CommandList();

/// How to get from nothing to a mail in one's mailbox.
extern const std::string_view kFirstSteps;

// The rows' functions, by the file that holds them. Each throws CAgentError for what went wrong.
Outcome RunStatus(CCommandContext& context, const CommandArguments& arguments);  // AlertCommands.cpp
Outcome RunPending(CCommandContext& context, const CommandArguments& arguments);
Outcome RunAcknowledge(CCommandContext& context, const CommandArguments& arguments);
Outcome RunSupported(CCommandContext& context, const CommandArguments& arguments);
Outcome RunTestMail(CCommandContext& context, const CommandArguments& arguments);  // MailCommands.cpp
Outcome RunSendMail(CCommandContext& context, const CommandArguments& arguments);
Outcome RunPreview(CCommandContext& context, const CommandArguments& arguments);
Outcome RunGet(CCommandContext& context, const CommandArguments& arguments);  // SettingCommands.cpp
Outcome RunSet(CCommandContext& context, const CommandArguments& arguments);
Outcome RunSetting(CCommandContext& context, const CommandArguments& arguments);
Outcome RunReset(CCommandContext& context, const CommandArguments& arguments);
Outcome RunCheckConfig(CCommandContext& context, const CommandArguments& arguments);  // CheckConfig.cpp
Outcome RunSubmit(CCommandContext& context, const CommandArguments& arguments);       // ServiceCommands.cpp
Outcome RunCheck(CCommandContext& context, const CommandArguments& arguments);
Outcome RunWatch(CCommandContext& context, const CommandArguments& arguments);
Outcome RunTrace(CCommandContext& context, const CommandArguments& arguments);  // ConsoleCommands.cpp
Outcome RunHelp(CCommandContext& context, const CommandArguments& arguments);
Outcome RunQuit(CCommandContext& context, const CommandArguments& arguments);
