#include <algorithm>

#include "AgentRun.h"

// Each folder of scenarios is one run of the agent with the library on a private machine:
//
//   scenario.jsonl      what happens, as the agent takes it
//   state.json          the agent's answers; without it, those of ../state.json
//   Notifications.xml   the notification file, if there is one; @PORT0@ and @PORT1@ become the servers' ports
//   ravlo.ini           the RAID manager's settings, if it is installed
//   smtp-0, smtp-1      options of the SMTP servers, one a line; a server runs for each file
//   options             further options of the agent
//   expected.jsonl      the transcript, without times (see Transcript)
//   mails-0, mails-1    what each server got, carriage returns written as \r
//   ports               the accesses to the speaker's ports
//   traces              lines of the trace, in this order; others may stand between them
//   Notifications.after the notification file at the end
//
// Each file is optional but the first. With EM_ACCEPT set, results are written into the files that are there instead of
// being compared: read them before they are committed.

namespace {

namespace fs = std::filesystem;

const fs::path kRaidManagerDirectory = "/opt/kestrel/HostwardenSuite/ArrayKeeper/bin";

std::vector<std::string> Lines(const fs::path& path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The transcript without times. Requests that come back are put last: the worker may answer before they do.
std::string Transcript(const fs::path& path) {
    std::vector<std::string> lines = Lines(path);
    std::stable_partition(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find(R"("kind":"returned")") == std::string::npos;
    });
    std::string text;
    for (const std::string& line : lines) {
        text += line.substr(0, line.rfind(",\"ms\":")) + "}\n";
    }
    return text;
}

std::string Show(const std::vector<CSmtpServer::Mail>& mails) {
    std::string text;
    for (const CSmtpServer::Mail& mail : mails) {
        text += "MAIL FROM " + mail.from + "\n";
        for (const std::string& address : mail.to) {
            text += "RCPT TO " + address + "\n";
        }
        text += ReplaceAll(mail.data, "\r", "\\r") + "=====\n";
    }
    return text;
}

class Scenario : public AgentRun, public ::testing::WithParamInterface<fs::path> {
protected:
    void SetUp() override {
        AgentRun::SetUp();
        for (const char* name : {"smtp-0", "smtp-1"}) {
            if (fs::exists(GetParam() / name)) {
                StartServer(Lines(GetParam() / name));
            }
        }
        if (fs::exists(GetParam() / "Notifications.xml")) {
            WriteNotificationFile(Read(GetParam() / "Notifications.xml"));
        }
        if (fs::exists(GetParam() / "ravlo.ini")) {
            fs::create_directories(kRaidManagerDirectory);
            fs::copy(GetParam() / "ravlo.ini", kRaidManagerDirectory);
        }
    }

    fs::path State() const {
        const fs::path own = GetParam() / "state.json";
        return fs::exists(own) ? own : GetParam().parent_path() / "state.json";
    }

    /// Compares where the folder says what is right.
    void Check(const std::string& name, const std::string& actual) const {
        if (!fs::exists(GetParam() / name)) {
            return;
        }
        if (std::getenv("EM_ACCEPT") != nullptr) {
            std::ofstream(GetParam() / name, std::ios::binary) << actual;
        } else {
            EXPECT_EQ(actual, Read(GetParam() / name)) << name;
        }
    }
};

std::vector<fs::path> Folders() {
    std::vector<fs::path> folders;
    for (const auto& entry : fs::directory_iterator(EM_SCENARIOS)) {
        if (entry.is_directory()) {
            folders.push_back(entry.path());
        }
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

}  // namespace

TEST_P(Scenario, RunsAsExpected) {
    std::string options = Read(GetParam() / "options");
    if (fs::exists(GetParam() / "ports")) {
        options += " --port-log " + (out_ / "ports").string();
    }
    EXPECT_EQ(RunAgent(State(), GetParam() / "scenario.jsonl", ReplaceAll(options, "\n", " ")), 0)
        << Read(out_ / "trace");
    Check("expected.jsonl", WithoutPorts(Transcript(out_ / "transcript")));
    for (std::size_t i = 0; i < servers_.size(); ++i) {
        Check("mails-" + std::to_string(i), Show(servers_[i]->WaitForMails(0)));
    }
    Check("ports", Read(out_ / "ports"));
    const std::string trace = WithoutPorts(Read(out_ / "trace"));
    std::size_t at = 0;
    for (const std::string& line : Lines(GetParam() / "traces")) {
        at = trace.find("\n" + line, at);
        ASSERT_NE(at, std::string::npos) << line << "\n\n" << trace;
        ++at;
    }
    Check("Notifications.after", WithoutPorts(Read(kNotificationFile)));
    EXPECT_FALSE(fs::exists(kNotificationFile.string() + ".lock"));
}

INSTANTIATE_TEST_SUITE_P(Module, Scenario, ::testing::ValuesIn(Folders()),
                         [](const auto& scenario) { return scenario.param.filename().string(); });
