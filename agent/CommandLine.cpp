// SPDX-License-Identifier: Apache-2.0
#include "agent/CommandLine.h"

#include <array>
#include <getopt.h>

#include "agent/settings/Settings.h"

const char* const kUsage =
    "Usage: em-alert-agent --module LIB [--state FILE] [options]\n"
    "Loads an extension module and plays the agent for it.\n"
    "\n"
    "  --module LIB        the module, for example build/dev/lib/libem_alert.so\n"
    "  --state FILE        the agent's answers to the module's requests (JSON);\n"
    "                      a console does without\n"
    "  --scenario FILE     what happens, a JSON object a line; - is standard input;\n"
    "                      without it there is a console\n"
    "  --transcript FILE   where the run is written down; - is standard output, the\n"
    "                      default with a scenario\n"
    "  --story             write sentences, as on a terminal, instead of JSON; in a\n"
    "                      console: tell everything\n"
    "  --cabinet N         the server's cabinet number, default 0\n"
    "  --run-mode N        5 agentless service, 8 update management, 10 both; default 0\n"
    "  --trace LEVEL       module traces, 1 errors to 5 device detail, 0 none; a level\n"
    "                      in the environment (LUME_LOG_DEBUG_LEVEL) goes before\n"
    "  --trace-file FILE   appends the traces to a file, which SIGHUP opens anew; default\n"
    "                      standard error\n"
    "  --no-trace-times    leaves the time of day out of traces\n"
    "  --wav FILE          plays the speaker's tones into a sound file\n"
    "  --port-log FILE     writes down each access to the speaker's ports\n"
    "  --version           the version\n"
    "  -h, --help          this text\n"
    "\n"
    "Exit status: 0 every step worked, 1 one failed, 2 the command line is wrong.\n"
    "docs/agent.md describes the files.\n";

namespace {

constexpr auto kOptions = std::to_array<option>({
    {"module", required_argument, nullptr, 'm'},
    {"state", required_argument, nullptr, 's'},
    {"scenario", required_argument, nullptr, 'c'},
    {"transcript", required_argument, nullptr, 't'},
    {"story", no_argument, nullptr, 'y'},
    {"cabinet", required_argument, nullptr, 'n'},
    {"run-mode", required_argument, nullptr, 'r'},
    {"trace", required_argument, nullptr, 'l'},
    {"trace-file", required_argument, nullptr, 'f'},
    {"no-trace-times", no_argument, nullptr, 'o'},
    {"wav", required_argument, nullptr, 'w'},
    {"port-log", required_argument, nullptr, 'p'},
    {"version", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
});

unsigned int NumberOption(const char* name) {
    const auto number = ParseWrittenNumber(optarg);
    if (!number) {
        throw CAgentError(std::string("--") + name + " takes a number from 0 to 4294967295, not \"" + optarg + "\"");
    }
    return *number;
}

void Take(CommandLine& line, int letter, const char* argument) {
    switch (letter) {
        case 'm':
            line.agent.library = optarg;
            break;
        case 's':
            line.state = optarg;
            break;
        case 'c':
            line.scenario = optarg;
            break;
        case 't':
            line.transcript = optarg;
            break;
        case 'y':
            line.story = true;
            break;
        case 'n':
            line.agent.cabinet = NumberOption("cabinet");
            break;
        case 'r':
            line.agent.runMode = NumberOption("run-mode");
            break;
        case 'l':
            line.traceLevel = std::to_string(NumberOption("trace"));
            break;
        case 'f':
            line.traceFile = optarg;
            break;
        case 'o':
            line.withoutTraceTimes = true;
            break;
        case 'w':
            line.wav = optarg;
            break;
        case 'p':
            line.portLog = optarg;
            break;
        case 'v':
            line.version = true;
            break;
        case 'h':
            line.help = true;
            break;
        case ':':
            throw CAgentError(std::string(argument) + " needs a value");
        default:
            throw CAgentError(std::string(argument) + " is not an option; --help lists them");
    }
}

}  // namespace

CommandLine ParseCommandLine(int argc, char** argv) {
    CommandLine line;
    opterr = 0;
    for (;;) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other thread yet
        const int letter = ::getopt_long(argc, argv, "+:h", kOptions.data(), nullptr);
        if (letter < 0) {
            break;
        }
        Take(line, letter, argv[optind - 1]);
    }
    if (line.help || line.version) {
        return line;
    }
    if (optind < argc) {
        throw CAgentError(std::string("\"") + argv[optind] + "\" is one argument too many; --help lists the options");
    }
    if (line.agent.library.empty()) {
        throw CAgentError("--module LIB is needed; --help lists the options");
    }
    if (line.scenario && line.state.empty()) {
        throw CAgentError("a scenario needs --state FILE; --help lists the options");
    }
    if (!line.scenario && line.transcript == "-") {
        throw CAgentError("a console uses standard output itself; give --transcript a file");
    }
    return line;
}
