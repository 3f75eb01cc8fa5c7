// SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <unistd.h>

#include "agent/core/Files.h"
#include "agent/traces/ModuleTraces.h"
#include "agent/traces/TraceSink.h"
#include "command/CommandLine.h"
#include "command/commands/CommandContext.h"
#include "command/commands/CommandTable.h"
#include "command/commands/Console.h"
#include "command/terminal/ConsoleTerminal.h"
#include "command/terminal/ConsoleWait.h"
#include "service/config/Printable.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongCommandLine = 2;
constexpr const char* kNotWritten = "standard output cannot be written";
constexpr const char* kUsualSocket = "/run/em-alert/control";

int Report(const std::string& reason, int status) {
    std::fflush(stdout);
    std::fprintf(stderr, "em-alert: %s\n", Printable(reason, SIZE_MAX).c_str());
    return status;
}

const char* Environment(const char* name) {
    const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): there is no other thread yet
    return value != nullptr ? value : "";
}

/// Empty where the user has no place of their own.
std::string StateFolder(const ProgramOptions& program) {
    const std::string state = Environment("XDG_STATE_HOME");
    const std::string home = Environment("HOME");
    return !program.state.empty() ? program.state
           : !state.empty()       ? state + "/em-alert"
           : !home.empty()        ? home + "/.local/state/em-alert"
                                  : std::string();
}

std::string InFolder(const std::string& folder, const char* name) {
    return folder.empty() ? folder : folder + "/" + name;
}

ContextOptions MakeContextOptions(const ProgramOptions& program, bool isConsole) {
    ContextOptions options;
    options.module.agent.library = program.module;
    options.installedModule = EM_INSTALLED_MODULE;
    options.module.settingsFile = InFolder(StateFolder(program), "settings.json");
    options.module.speaks = isConsole;
    options.socket = program.socket.value_or(program.module.empty() ? kUsualSocket : "");
    options.json = program.json;
    options.colour = ::isatty(STDOUT_FILENO) == 1 && Environment("NO_COLOR")[0] == '\0';
    options.isConsole = isConsole;
    return options;
}

void SetUpTraces(const ProgramOptions& program) {
    if (!program.traceFile.empty()) {
        Debug.UseFile(program.traceFile);
    }
    Debug.Show(program.traceLevel.has_value() || !program.traceFile.empty());
    Debug.ShowTimes(!program.withoutTraceTimes);
    SetTraceLevel(program.traceLevel);
}

// What was printed may stand nowhere, on a full device say.
bool IsOutputWritten() {
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

int RunOnce(CCommandContext& context, const ProgramOptions& program) {
    const bool json = context.Options().json;
    Outcome outcome;
    try {
        SetUpTraces(program);
        outcome = RunCommand(context, program.words);
    } catch (const CUsageError&) {
        throw;
    } catch (const std::exception& error) {
        outcome.failure = error.what();
        outcome.json = "{\"error\":" + JsonString(outcome.failure) + "}";
    }
    const bool closed = context.Close();
    if (!outcome.isTold) {
        context.Terminal().Print(!json                  ? outcome.text
                                 : outcome.json.empty() ? std::string(R"({"done":true})") + "\n"
                                                        : outcome.json + "\n");
    }
    if (!outcome.failure.empty()) {
        return Report(outcome.failure, kFailed);
    }
    if (!IsOutputWritten()) {
        return Report(kNotWritten, kFailed);
    }
    return closed ? EXIT_SUCCESS : kFailed;
}

int RunProgram(const ProgramOptions& program) {
    const bool isConsole = program.words.empty();
    const bool edits = isConsole && IsAtTerminal();
    CConsoleWait wait({.editsLines = edits, .hasTraceFile = !program.traceFile.empty()});
    const auto terminal = edits ? MakeEditingTerminal(wait, CompleteLine, InFolder(StateFolder(program), "history"))
                                : MakePlainTerminal(wait);
    CCommandContext context(MakeContextOptions(program, isConsole), *terminal);
    if (!isConsole) {
        return RunOnce(context, program);
    }
    SetUpTraces(program);
    if (edits && program.traceFile.empty()) {
        Debug.UseTerminal(terminal.get());
    }
    const bool worked = RunConsole(context);
    if (!IsOutputWritten()) {
        return Report(kNotWritten, kFailed);
    }
    return context.Close() && worked ? EXIT_SUCCESS : kFailed;
}

int PrintText(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    return IsOutputWritten() ? EXIT_SUCCESS : Report(kNotWritten, kFailed);
}

int Run(int argc, char** argv) {
    const ProgramOptions program = ParseProgramOptions(argc, argv);
    if (program.complete) {
        std::string line;
        for (const std::string& word : program.words) {
            line += (line.empty() ? "" : " ") + word;
        }
        std::string text;
        for (const std::string& word : CompleteArguments(line)) {
            text += word + "\n";
        }
        return PrintText(text);
    }
    return program.help      ? PrintText(HelpText())
           : program.version ? PrintText("em-alert " EM_VERSION "\n")
           : program.man     ? PrintText(ManualPage())
                             : RunProgram(program);
}

}  // namespace

int main(int argc, char** argv) {
    KeepStandardDescriptors();
    try {
        return Run(argc, argv);
    } catch (const CUsageError& error) {
        return Report(error.what(), kWrongCommandLine);
    } catch (const std::exception& error) {
        return Report(error.what(), kFailed);
    } catch (...) {
        return Report("unknown exception", kFailed);
    }
}
