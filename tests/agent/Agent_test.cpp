#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

struct Outcome {
    int status;
    std::string output;  // the transcript without its times, and standard error
};

// Runs the agent as an operator would, in a directory of its own.
class AgentTest : public ::testing::Test {
protected:
    AgentTest() { fs::create_directory(directory_); }
    ~AgentTest() override { fs::remove_all(directory_); }

    std::string File(const std::string& name, const std::string& text) const {
        std::ofstream(directory_ / name) << text;
        return (directory_ / name).string();
    }

    static std::string Read(const fs::path& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    std::string Text(const std::string& name) const { return Read(directory_ / name); }

    static Outcome Shell(const std::string& command) {
        Outcome outcome{};
        std::FILE* pipe = ::popen(("exec 2>&1; " + command).c_str(), "r");
        std::array<char, 4096> buffer{};
        while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
            outcome.output.append(buffer.data(), count);
        }
        const int status = ::pclose(pipe);
        outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        const std::string time = ",\"ms\":";
        for (std::size_t at = 0; (at = outcome.output.find(time, at)) != std::string::npos;) {
            outcome.output.erase(at, outcome.output.find('}', at) - at);
        }
        return outcome;
    }

    Outcome Run(const std::string& state, const std::string& scenario, const std::string& options = "",
                const std::string& module = FAKE_MODULE) const {
        return Shell(std::string(AGENT " --module ") + module + " --state " + File("state.json", state) +
                     " --scenario " + File("run.jsonl", scenario) + " --trace-file " +
                     (directory_ / "traces").string() + " " + options);
    }

private:
    fs::path directory_ = fs::temp_directory_path() / ("agent_test." + std::to_string(::getpid()));
};

const char* const kEventsOn = R"([{"OC":57345,"OE":1024,"DA":1}])";

std::vector<std::string> LinesWith(const std::string& text, const std::string& part) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (line.find(part) != std::string::npos) {
            lines.push_back(line);
        }
    }
    return lines;
}

TEST_F(AgentTest, WritesDownTheWholeRunInOrder) {
    const Outcome run = Run(R"([{"OC":"0xE001","OE":"0x400","DA":1},{"OC":4660,"ST":12,"DA":"late"}])",
                            Read(fs::path(RUNS) / "whole.scenario"), "--cabinet 7");
    EXPECT_EQ(run.output, Read(fs::path(RUNS) / "whole.transcript"));
    EXPECT_EQ(run.status, 0);
}

TEST_F(AgentTest, AnswersWithTheFirstEntryThatFits) {
    const Outcome run =
        Run(R"([{"OC":4660,"OE":1,"OI":2,"DA":"exact"}, {"OC":4660,"OE":0,"DA":[1]}, {"OC":4660,"CA":3,"ST":9}])",
            R"({"request":{"OC":"0x9002","OE":1,"OI":2,"CA":3}}
{"request":{"OC":"0x9002","OI":5}}
{"request":{"OC":"0x9002","OE":1,"OI":1,"CA":3}}
{"request":{"OC":"0x9002","OE":1,"OI":1,"CA":4}}
{"set":{"OC":"0x1234","OE":0,"DA":"set"}}
{"request":{"OC":"0x9002","OI":5}}
{"set":{"OC":"0x1234","OE":1,"OI":1,"CA":4,"ST":1,"DA":"new"}}
{"request":{"OC":"0x9002","OE":1,"OI":1,"CA":4}}
)");
    std::string answers;
    for (const std::string& line : LinesWith(run.output, "\"OC\":4660")) {
        const auto status = line.find("\"ST\":", line.find("\"answer\"")) + 5;
        answers += line.substr(status, line.find('}', status) - status) + "\n";
    }
    EXPECT_EQ(answers, "0,\"DA\":\"exact\"\n0,\"DA\":[1]\n9\n1\n0,\"DA\":\"set\"\n1,\"DA\":\"new\"\n");
    EXPECT_EQ(run.status, 0);
}

TEST_F(AgentTest, RestartsAndRunsThreads) {
    const std::string lines = R"([{"request":{"OC":"0x9001"}},{"await":{"kind":"reply","OC":4660}},{"wait":1}])";
    const Outcome run = Run(kEventsOn, R"({"event":{"OC":"0x2322"}})"
                                       "\n"
                                       R"({"set":{"OC":57345,"OE":1024,"DA":0}})"
                                       "\n"
                                       R"({"restart":true})"
                                       "\n"
                                       R"({"event":{"OC":"0x2322"}})"
                                       "\n"
                                       R"({"parallel":[)" +
                                           lines + "," + lines + "," + lines + "]}\n");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(LinesWith(run.output, R"("step":"unmapped","result":true)").size(), 2U);
    EXPECT_EQ(LinesWith(run.output, R"({"kind":"event")").size(), 1U);
    EXPECT_EQ(LinesWith(run.output, R"({"kind":"withheld")").size(), 1U) << "after the restart events are off";
    EXPECT_EQ(LinesWith(run.output, R"({"kind":"reply")").size(), 3U);
}

TEST_F(AgentTest, TellsWhatIsWrong) {
    const std::string deep(70, '[');
    const struct {
        std::string state, scenario, words;
    } kCases[] = {
        {"", "", "state.json, line 1: the state is an array of answers"},
        {"[{\"OC\":1},\n\n{\"OC\":x}]", "", "state.json, line 3: not valid JSON at character 19: Invalid value."},
        {"[{\"OC\":1} {}]", "", "state.json, line 1: a comma or the end of the array is missing"},
        {"[{\"OC\":1,\"DA\":" + deep + "]", "", "state.json, line 1: nested deeper than 64 levels"},
        {"[]", "{\"wait\":0}\n{\"event\":{\"OD\":1}}", "run.jsonl, line 2: a command has no \"OD\""},
        {"[]", "{\"event\":{\"OC\":4294967296}}", "run.jsonl, line 1: \"OC\" is a number"},
        {"[]", "{\"wiat\":1}", "run.jsonl, line 1: no step is known in this line; the steps are event, notice"},
        {"[]", "{\"parallel\":[[{\"restart\":true}]]}", "line 1: \"restart\" does not go into \"parallel\""},
        {"[]", "{\"await\":{\"kind\":\"reply\",\"ST\":0},\"ms\":10}",
         "line 1: nothing like {\"kind\":\"reply\",\"ST\":0} came within 10 ms"},
        {"[]", "{\"await\":{\"step\":\"Start\"}}\n{\"await\":{\"step\":\"Start\"},\"ms\":1}", "line 2: nothing like"},
        {"[]", "{\"notify\":\"0x98\"}", "em-alert-agent: Stop failed\n"},
        {"[]", "{\"notify\":\"0x99\"}", "em-alert-agent: unmapped failed: the library is still in memory\n"},
    };
    for (const auto& test : kCases) {
        const Outcome run = Run(test.state, test.scenario);
        EXPECT_EQ(run.status, 1) << test.words;
        EXPECT_NE(run.output.find(test.words), std::string::npos) << test.words << "\nnot in\n" << run.output;
        const bool loaded = run.output.find("\"dlopen\"") != std::string::npos;
        EXPECT_EQ(run.output.find("\"unmapped\"") != std::string::npos, loaded) << "left loaded: " << test.words;
    }
}

TEST_F(AgentTest, TellsWhichLibraryFails) {
    const Outcome missing = Run("[]", "", "", "/nowhere/libx.so");
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.output.find("dlopen failed: /nowhere/libx.so: cannot open"), std::string::npos) << missing.output;
    const Outcome foreign = Run("[]", "", "", "libm.so.6");
    EXPECT_EQ(foreign.status, 1);
    EXPECT_NE(foreign.output.find("undefined symbol: EM_Create"), std::string::npos) << foreign.output;
}

TEST_F(AgentTest, RefusesAWrongCommandLine) {
    const struct {
        const char* arguments;
        const char* words;
    } kCases[] = {
        {"", "--module LIB is needed"},
        {"--module x --scenario -", "a scenario needs --state FILE"},
        {"--speed 3", "--speed is not an option"},
        {"--module x --state y --cabinet 1x", "--cabinet takes a number from 0 to 4294967295, not \"1x\""},
    };
    for (const auto& test : kCases) {
        const Outcome run = Shell(std::string(AGENT " ") + test.arguments);
        EXPECT_EQ(run.status, 2) << test.arguments;
        EXPECT_NE(run.output.find(test.words), std::string::npos) << run.output;
    }
    EXPECT_EQ(Shell(AGENT " --help").status, 0);
}

TEST_F(AgentTest, PassesTracesAndRunModeOn) {
    EXPECT_EQ(Run("[]", "", "--trace 4 --run-mode 8").status, 0);
    EXPECT_EQ(Text("traces"), "\nFAKE: level 4, mode 8");
    ASSERT_EQ(::setenv("LUME_LOG_DEBUG_LEVEL", "2", 1), 0);
    EXPECT_EQ(Run("[]", "", "--trace 4").status, 0);
    ::unsetenv("LUME_LOG_DEBUG_LEVEL");
    EXPECT_EQ(Text("traces"), "\nFAKE: level 2, mode 0");
}

}  // namespace
