#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string_view>
#include <system_error>
#include <unistd.h>

#include "agent/CommandLine.h"
#include "agent/console/Console.h"
#include "agent/console/ConsoleTerminal.h"
#include "agent/console/ConsoleWait.h"
#include "agent/core/Agent.h"
#include "agent/core/AnswerTable.h"
#include "agent/core/TraceSink.h"
#include "agent/core/Transcript.h"
#include "agent/scenario/Scenario.h"
#include "agent/speaker/BusIoDriver.h"

namespace {

constexpr int kStepFailed = 1;
constexpr int kWrongCommandLine = 2;

int Report(const char* reason, int status) {
    std::fprintf(stderr, "em-alert-agent: %s\n", reason);
    return status;
}

std::ifstream OpenInput(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw CAgentError("cannot read " + path + ": " + std::generic_category().message(errno));
    }
    return file;
}

void LoadState(CAnswerTable& answers, const std::string& path) {
    std::ifstream file = OpenInput(path);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
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
    if (line.traceLevel) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
        ::setenv("LUME_LOG_DEBUG_LEVEL", line.traceLevel->c_str(), 0);
    }
}

/// The speaker, when somebody wants to hear it, and for an operator without a real one. Built before the module is
/// loaded and gone after it is unloaded.
std::unique_ptr<CBusIoDriver> MakeSpeaker(const CommandLine& line, CTranscript& transcript) {
    const bool tells = !line.scenario && ::access("/dev/pci/smbus", F_OK) != 0;
    if (line.wav.empty() && line.portLog.empty() && !tells) {
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

template <typename Work>
bool WithModule(const CommandLine& line, CTranscript& transcript, Work work) {
    CAnswerTable answers;
    if (!line.state.empty()) {
        LoadState(answers, line.state);
    }
    const std::unique_ptr<CBusIoDriver> speaker = MakeSpeaker(line, transcript);
    CAgent agent(line.agent, answers, transcript);
    if (agent.Load()) {
        work(agent, answers);
        return agent.Unload() && !agent.HasFailed() && transcript.IsComplete();
    }
    agent.Unload();
    return false;
}

bool RunScenario(const CommandLine& line) {
    CTranscript transcript(line.transcript.value_or("-"), line.story);
    return WithModule(line, transcript, [&](CAgent& agent, CAnswerTable& answers) {
        if (*line.scenario == "-") {
            CScenario(agent, answers).Run(std::cin, "standard input");
        } else {
            std::ifstream file = OpenInput(*line.scenario);
            CScenario(agent, answers).Run(file, *line.scenario);
        }
    });
}

/// True for what the module does on its own, and for what fails; the console's commands tell the rest themselves.
bool ConcernsOperator(const TranscriptEntry& entry) {
    constexpr std::array<std::string_view, 5> kKinds = {"event", "reply", "tone", "forward-event", "withheld"};
    return std::ranges::find(kKinds, entry.kind) != kKinds.end() ||
           (entry.kind == "lifecycle" && entry.result == "false");
}

bool RunConsole(const CommandLine& line) {
    CConsoleWait wait;
    const std::unique_ptr<CIConsoleTerminal> terminal = MakeConsoleTerminal(wait, CConsole::Complete);
    if (!line.traceFile && IsAtTerminal() && ::isatty(STDERR_FILENO) == 1) {
        Debug.UseTerminal(terminal.get());
    }
    CTranscript transcript(line.transcript, false, [&](const TranscriptEntry& entry, const std::string& sentence) {
        if (line.story || ConcernsOperator(entry)) {
            terminal->Print(sentence);
        }
    });
    const bool worked = WithModule(
        line, transcript, [&](CAgent& agent, CAnswerTable& answers) { CConsole(agent, answers, *terminal).Run(); });
    if (worked) {
        terminal->Print("The module is stopped and unloaded.\n");
    }
    return worked;
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine line;
    try {
        line = ParseCommandLine(argc, argv);
    } catch (const std::exception& error) {
        return Report(error.what(), kWrongCommandLine);
    }
    if (line.help) {
        std::fputs(kUsage, stdout);
        return EXIT_SUCCESS;
    }
    try {
        SetUpTraces(line);
        return (line.scenario ? RunScenario(line) : RunConsole(line)) ? EXIT_SUCCESS : kStepFailed;
    } catch (const std::exception& error) {
        return Report(error.what(), kStepFailed);
    } catch (...) {
        return Report("unknown exception", kStepFailed);
    }
}
