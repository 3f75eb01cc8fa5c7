// SPDX-License-Identifier: Apache-2.0
#include "command/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>

#include "command/ProgramOptionTable.h"
#include "command/commands/CommandContext.h"
#include "command/commands/CommandTable.h"

namespace {

constexpr unsigned kHighestTraceLevel = 5;

// CLI11 would take the next word for the value.
void RefuseEmptyValues(std::span<char*> words) {
    for (const std::string_view word : words) {
        if (word == "--") {
            return;
        }
        if (word.starts_with("--") && word.ends_with('=') && word.find(' ') == std::string_view::npos) {
            throw CUsageError(std::string(word) + " lacks its value; --help lists the options");
        }
    }
}

// Everything behind the command's name is the command's, but for --json, which people put there.
void TakeFromWords(ProgramOptions& options) {
    const auto end = std::ranges::find(options.words, "--");
    const auto rest = std::remove(options.words.begin(), end, "--json");
    options.json = options.json || rest != end;
    options.words.erase(rest, end);
}

}  // namespace

std::span<const ProgramOptionRow> ProgramOptionTable() {
    static constexpr auto kRows = std::to_array<ProgramOptionRow>({
        {"--module", "LIB", "the alert module, instead of the installed one"},
        {"--socket", "PATH",
         "the service's control socket, /run/em-alert/control unless --module is given; where no\n"
         "service answers, the module is loaded by this command itself"},
        {"--state", "DIR", "where alert settings and the history are kept when no service runs"},
        {"--trace", "LEVEL", "show the module's traces, 1 errors to 5 device detail"},
        {"--trace-file", "FILE", "append the traces to a file; SIGHUP opens it anew"},
        {"--no-trace-times", "", "leave the time of day out of traces"},
        {"--json", "", "print one JSON value"},
        {"--version", "", "print the version"},
        {"-h,--help", "", "list the commands and options"},
    });
    return kRows;
}

ProgramOptions ParseProgramOptions(int argc, char** argv) {
    ProgramOptions options;
    CLI::App app;
    app.set_help_flag();
    app.prefix_command();
    app.add_option("--module", options.module);
    app.add_option("--socket", options.socket);
    app.add_option("--state", options.state);
    app.add_option("--trace", options.traceLevel)->check(CLI::Range(0U, kHighestTraceLevel));
    app.add_option("--trace-file", options.traceFile);
    app.add_flag("--no-trace-times", options.withoutTraceTimes);
    app.add_flag("--json", options.json);
    app.add_flag("--version", options.version);
    app.add_flag("-h,--help", options.help);
    app.add_flag("--man", options.man);
    app.add_flag("--complete", options.complete);
    RefuseEmptyValues({argv, static_cast<std::size_t>(argc)});
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        throw CUsageError(std::string(error.what()) + "; --help lists the options");
    }
    options.words = app.remaining();
    if (!options.complete) {
        if (!options.words.empty() && options.words[0] == "--") {
            options.words.erase(options.words.begin());
        } else if (!options.words.empty() && options.words[0].starts_with('-')) {
            throw CUsageError(options.words[0] + " is not an option; --help lists them");
        }
        TakeFromWords(options);
        if (options.json && options.words.empty() && !options.help && !options.version && !options.man) {
            throw CUsageError("--json goes with a command: the console's answers are for people");
        }
    }
    return options;
}

std::string HelpText() {
    std::string text =
        "Usage: em-alert [options] [COMMAND ...]\n"
        "Sets up, tries and follows the alerts of this server. Without a command there is a console.\n\nCommands:\n";
    const auto add = [&](std::string left, std::string_view right) {
        constexpr std::size_t kWidth = 40;
        left = "  " + left;
        left.resize(std::max(left.size() + 2, kWidth), ' ');
        text += left;
        for (const char c : right) {
            text += c == '\n' ? "\n" + std::string(kWidth, ' ') : std::string(1, c);
        }
        text += "\n";
    };
    for (const CommandRow& row : CommandTable()) {
        if (row.needs != CommandRow::Needs::Console) {
            add(row.Usage(), row.help);
        }
    }
    text += "\nOptions:\n";
    for (const ProgramOptionRow& row : ProgramOptionTable()) {
        add(std::string(row.names) + (row.value.empty() ? "" : " ") + std::string(row.value), row.help);
    }
    return text +
           "\n\"em-alert help COMMAND\" tells more, and the manual page em-alert(1) all.\n"
           "Exit status: 0 done, 1 failed, 2 the command line is wrong.\n";
}
