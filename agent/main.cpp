// SPDX-License-Identifier: Apache-2.0
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <unistd.h>

#include "agent/CommandLine.h"
#include "agent/core/Agent.h"
#include "agent/core/AnswerTable.h"
#include "agent/core/Files.h"
#include "agent/core/Transcript.h"
#include "agent/scenario/Scenario.h"
#include "agent/speaker/BusIoDriver.h"
#include "agent/traces/ModuleTraces.h"
#include "agent/traces/TraceSink.h"
#include "command/commands/CommandContext.h"
#include "command/commands/Console.h"
#include "command/terminal/ConsoleTerminal.h"
#include "command/terminal/ConsoleWait.h"

namespace {

constexpr int kStepFailed = 1;
constexpr int kWrongCommandLine = 2;

int Report(const char* reason, int status) {
    std::fprintf(stderr, "em-alert-agent: %s\n", reason);
    return status;
}

void LoadState(CAnswerTable& answers, const std::string& path) {
    const std::string text = ReadWholeFile(path);
    try {
        answers.Load(text);
    } catch (const CAgentError& error) {
        throw CAgentError(path + ", " + error.what());
    }
}

void SetUpTraces(const CommandLine& line) {
    if (line.traceFile) {
        Debug.UseFile(*line.traceFile);
    }
    Debug.ShowTimes(!line.withoutTraceTimes);
    if (line.traceFile) {
        // Log rotation renames the file; a console has a handler of its own.
        struct sigaction action {};
        action.sa_handler = [](int) { Debug.ReopenFile(); };
        action.sa_flags = SA_RESTART;  // a scenario is read meanwhile
        ::sigaction(SIGHUP, &action, nullptr);
    }
    if (line.traceLevel) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
        ::setenv("LUME_LOG_DEBUG_LEVEL", line.traceLevel->c_str(), 0);
    }
}

/// The speaker, when somebody wants to hear it. Built before the module is loaded and gone after it is unloaded.
std::unique_ptr<CBusIoDriver> MakeSpeaker(const CommandLine& line, CTranscript& transcript) {
    if (line.wav.empty() && line.portLog.empty()) {
        return nullptr;
    }
    return std::make_unique<CBusIoDriver>(BusIoDriverOptions{
        .wavFile = line.wav,
        .portLogFile = line.portLog,
        .onTone =
            [&transcript](const std::string& tone) {
                TranscriptEntry entry;
                entry.kind = "tone";
                entry.note = tone;
                transcript.Write(entry);
            },
    });
}

void RunSteps(const CommandLine& line, CAgent& agent, CAnswerTable& answers) {
    if (*line.scenario == "-") {
        CScenario(agent, answers).Run(std::cin, "standard input");
    } else {
        std::ifstream file = OpenInput(*line.scenario);
        CScenario(agent, answers).Run(file, *line.scenario);
    }
}

bool RunScenario(const CommandLine& line) {
    CTranscript transcript(line.transcript.value_or("-"), line.story);
    CAnswerTable answers;
    if (!line.state.empty()) {
        LoadState(answers, line.state);
    }
    const std::unique_ptr<CBusIoDriver> speaker = MakeSpeaker(line, transcript);
    CAgent agent(line.agent, answers, transcript);
    const bool loaded = agent.Load();
    if (loaded) {
        RunSteps(line, agent, answers);
    }
    const bool worked = agent.Unload() && loaded && !agent.HasFailed();
    if (!transcript.IsComplete()) {
        throw CAgentError("the transcript could not be written");
    }
    return worked;
}

/// The operator's console, with this program's own options.
bool RunAgentConsole(const CommandLine& line) {
    CConsoleWait wait({.editsLines = IsAtTerminal(), .hasTraceFile = line.traceFile.has_value()});
    const auto terminal = IsAtTerminal() ? MakeEditingTerminal(wait, CompleteLine, "") : MakePlainTerminal(wait);
    Debug.Show(line.traceLevel || line.traceFile);
    SetTraceLevel(std::nullopt);
    if (!line.traceFile && IsAtTerminal() && ::isatty(STDERR_FILENO) == 1) {
        Debug.UseTerminal(terminal.get());
    }
    CAnswerTable answers;
    if (!line.state.empty()) {
        LoadState(answers, line.state);  // tells what is wrong in which file
    }
    ContextOptions options;
    options.isConsole = true;
    options.module = {.agent = line.agent,
                      .answers = line.state.empty() ? "" : ReadWholeFile(line.state),
                      .settingsFile = {},
                      .transcript = line.transcript,
                      .story = line.story,
                      .wav = line.wav,
                      .portLog = line.portLog,
                      .speaks = true};
    CCommandContext context(options, *terminal);
    const bool worked = RunConsole(context);
    if (!context.Close()) {
        return false;
    }
    terminal->Print("The module is stopped and unloaded.\n");
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw CAgentError("standard output cannot be written");
    }
    return worked;
}

}  // namespace

int main(int argc, char** argv) {
    KeepStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN);  // a reader that goes away leaves a module to be stopped
    CommandLine line;
    try {
        line = ParseCommandLine(argc, argv);
    } catch (const std::exception& error) {
        return Report(error.what(), kWrongCommandLine);
    }
    if (line.help || line.version) {
        std::fputs(line.help ? kUsage : "em-alert-agent " EM_VERSION "\n", stdout);
        return std::fflush(stdout) == 0 ? EXIT_SUCCESS : Report("standard output cannot be written", kStepFailed);
    }
    try {
        SetUpTraces(line);
        return (line.scenario ? RunScenario(line) : RunAgentConsole(line)) ? EXIT_SUCCESS : kStepFailed;
    } catch (const std::exception& error) {
        return Report(error.what(), kStepFailed);
    } catch (...) {
        return Report("unknown exception", kStepFailed);
    }
}
