// SPDX-License-Identifier: Apache-2.0
#include "command/commands/Console.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <exception>

#include "agent/settings/Settings.h"
#include "service/config/Printable.h"

namespace {

constexpr unsigned kServers = 2;
constexpr unsigned kHighestLanguage = 65535;

// What failed may be told in the words of a file or of a server.
void TellFailure(const std::string& reason) {
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, Printable(reason, SIZE_MAX).c_str());
}

// @return false when it failed
bool Execute(CCommandContext& context, const std::string& line) {
    const std::vector<std::string> words = SplitWords(line);
    if (words.empty()) {
        return true;
    }
    const Outcome outcome = RunCommand(context, words);
    context.Terminal().Print(outcome.text);
    if (!outcome.failure.empty() && !IsAtTerminal()) {
        TellFailure(outcome.failure);
    }
    return outcome.failure.empty();
}

void CheckWords(const CommandRow& row, const CommandArguments& arguments) {
    if (arguments.words.size() < row.fewest || arguments.words.size() > row.most) {
        throw CUsageError("It goes: " + row.Usage() + " (" + std::string(row.help) + ").");
    }
}

bool IsHelp(const std::string& word) {
    return word == "-h" || word == "--help";
}

// Texts have blanks, mostly, and numbers are none.
bool LooksLikeOption(const std::string& word) {
    return word.size() > 1 && word[0] == '-' && (word[1] < '0' || word[1] > '9') && word.find(' ') == std::string::npos;
}

// Of a command without options. A slip must not become a value.
std::vector<std::string> TextsOf(const CommandRow& row, std::vector<std::string> words) {
    const auto end = std::ranges::find(words, "--");
    const auto option = std::find_if(words.begin(), end, LooksLikeOption);
    if (option != end) {
        throw CUsageError(*option + " is no option of \"" + std::string(row.name) +
                          "\"; what only looks like one goes behind --: " + row.Usage());
    }
    if (end != words.end()) {
        words.erase(end);
    }
    return words;
}

// Commands with options know where their words end.
CommandArguments ParseArguments(const CommandRow& row, const std::vector<std::string>& words) {
    CommandArguments arguments;
    if (row.options == CommandRow::kNoOption) {
        arguments.words = TextsOf(row, words);
        return arguments;
    }
    CLI::App app;
    app.set_help_flag();
    app.add_option("words", arguments.words);
    if ((row.options & CommandRow::kServer) != 0) {
        app.add_option("--server", arguments.server)->check(CLI::Range(1U, kServers));
    }
    if ((row.options & CommandRow::kLanguage) != 0) {
        app.add_option("--language", arguments.language)
            ->check(CLI::Range(0U, kHighestLanguage))
            ->check([](const std::string& text) {
                return ParseWrittenNumber(text) ? "" : text + " is no number without a leading 0";
            });
    }
    if ((row.options & CommandRow::kVerbose) != 0) {
        app.add_flag("-v,--verbose", arguments.verbose);
    }
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));  // which takes them from its end
    } catch (const CLI::ParseError& error) {
        throw CUsageError(std::string(error.what()) + "; it goes: " + row.Usage());
    }
    return arguments;
}

}  // namespace

std::vector<std::string> SplitWords(std::string_view line) {
    std::vector<std::string> words;
    bool quoted = false;
    bool inWord = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const bool blank = line[i] == ' ' || line[i] == '\t' || line[i] == '\r';
        if (blank && !quoted) {
            inWord = false;
            continue;
        }
        if (!inWord) {
            words.emplace_back();
            inWord = true;
        }
        if (line[i] == '"') {
            quoted = !quoted;
        } else {
            i += line.substr(i).starts_with("\\\"") ? 1U : 0U;
            words.back() += line[i];
        }
    }
    if (quoted) {
        throw CUsageError("A closing quotation mark is missing.");
    }
    return words;
}

Outcome RunCommand(CCommandContext& context, const std::vector<std::string>& words) {
    const CommandRow& row = FindCommandRow(words.at(0));
    if (std::any_of(words.begin(), std::ranges::find(words, "--"), IsHelp)) {
        return RunHelp(context, {.words = {words[0]}, .server = {}, .language = {}});
    }
    if (row.needs == CommandRow::Needs::Console && !context.Options().isConsole) {
        throw CUsageError("\"" + words[0] + "\" is a command of the console, which em-alert alone begins.");
    }
    const CommandArguments arguments = ParseArguments(row, {std::next(words.begin()), words.end()});
    CheckWords(row, arguments);
    return row.run(context, arguments);
}

bool RunConsole(CCommandContext& context) {
    bool worked = true;
    CIConsoleTerminal& terminal = context.Terminal();
    if (CLocalModule* module = context.Local()) {
        module->Load();
        terminal.Print("The module runs. Type \"help\" for the commands.\n");
    } else {
        terminal.Print("The service runs. Type \"help\" for the commands.\n");
    }
    while (!context.Quits()) {
        const auto line = terminal.ReadLine();
        if (!line) {
            break;
        }
        try {
            worked = Execute(context, *line) && worked;
        } catch (const std::exception& error) {
            if (IsAtTerminal()) {
                terminal.Print(Printable(error.what(), SIZE_MAX) + "\n");
            } else {
                TellFailure(error.what());
            }
            worked = false;
        }
        if (CLocalModule* module = context.Quits() ? nullptr : context.Local()) {
            module->Settle();
        }
    }
    return worked || IsAtTerminal();
}
