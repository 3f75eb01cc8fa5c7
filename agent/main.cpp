#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <system_error>

#include "agent/Agent.h"
#include "agent/AnswerTable.h"
#include "agent/BusIoDriver.h"
#include "agent/CommandLine.h"
#include "agent/Console.h"
#include "agent/Scenario.h"
#include "agent/TraceSink.h"
#include "agent/Transcript.h"

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

void Work(const CommandLine& line, CAgent& agent, CAnswerTable& answers) {
    if (!line.scenario) {
        CConsole(agent, answers, std::cout).Run(std::cin);
    } else if (*line.scenario == "-") {
        CScenario(agent, answers).Run(std::cin, "standard input");
    } else {
        std::ifstream file = OpenInput(*line.scenario);
        CScenario(agent, answers).Run(file, *line.scenario);
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

bool Run(const CommandLine& line) {
    SetUpTraces(line);
    CAnswerTable answers;
    LoadState(answers, line.state);
    CTranscript transcript(line.transcript, line.story);
    const std::unique_ptr<CBusIoDriver> speaker = MakeSpeaker(line, transcript);
    CAgent agent(line.agent, answers, transcript);
    if (agent.Load()) {
        Work(line, agent, answers);
        return agent.Unload() && !agent.HasFailed() && transcript.IsComplete();
    }
    agent.Unload();
    return false;
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
        return Run(line) ? EXIT_SUCCESS : kStepFailed;
    } catch (const std::exception& error) {
        return Report(error.what(), kStepFailed);
    } catch (...) {
        return Report("unknown exception", kStepFailed);
    }
}
