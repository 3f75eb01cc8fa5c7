#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <sstream>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/SmtpServer.h"

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
//   tones               the tones, each with the length that was asked for
//   commands-0, -1      what each server was told
//   traces              the alert module's own prints in their order (those of a request's return last), each with the
//                       trace level from which on it is printed: a further run for each level tells
//   trace-holds         expressions behind + or -: a line of the whole trace matches, or none does
//   Notifications.after the notification file at the end
//
// Each file is optional but the first. With EM_ACCEPT set, results are written into the files that are there instead of
// being compared: read them before they are committed.

namespace {

namespace fs = std::filesystem;

const fs::path kRaidManagerDirectory = "/opt/kestrel/HostwardenSuite/ArrayKeeper/bin";

/// @param whole  not where further digits follow or precede
std::string ReplaceAll(std::string text, const std::string& from, const std::string& to, bool whole = false) {
    const auto isDigit = [&text](std::size_t at) { return at < text.size() && std::isdigit(text[at]) != 0; };
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos;) {
        if (whole && (isDigit(at - 1) || isDigit(at + from.size()))) {
            ++at;
        } else {
            text.replace(at, from.size(), to);
            at += to.size();
        }
    }
    return text;
}

std::string Read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

void PutLast(std::vector<std::string>& lines, const std::string& what) {
    std::stable_partition(lines.begin(), lines.end(),
                          [&what](const std::string& line) { return line.find(what) == std::string::npos; });
}

/// The transcript without times and tones. Requests that come back are put last: the worker may answer before they do.
std::string Transcript(const fs::path& path) {
    std::vector<std::string> lines = Lines(Read(path));
    std::erase_if(lines, [](const std::string& line) { return line.find(R"("kind":"tone")") != std::string::npos; });
    PutLast(lines, R"("kind":"returned")");
    std::string text;
    for (const std::string& line : lines) {
        text += line.substr(0, line.rfind(",\"ms\":")) + "}\n";
    }
    return text;
}

std::string Tones(const fs::path& path) {
    std::string tones;
    for (const std::string& line : Lines(Read(path))) {
        if (line.starts_with("CDeviceBeeper       : Beep ") && line.ends_with(" msec")) {
            tones += line.substr(line.find("Beep")) + "\n";
        }
    }
    return tones;
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

/// Runs the agent with the library on a private machine, with SMTP servers and a notification file.
class Scenario : public ::testing::TestWithParam<fs::path> {
protected:
    void SetUp() override {
        for (const char* name : {"smtp-0", "smtp-1"}) {
            if (fs::exists(GetParam() / name)) {
                servers_.push_back(std::make_unique<CSmtpServer>(Lines(Read(GetParam() / name))));
            }
        }
    }

    void TearDown() override { fs::remove_all(out_); }

    /// For texts that are compared: the servers' ports become @PORT0@, @PORT1@.
    std::string WithoutPorts(std::string text) const {
        for (std::size_t i = 0; i < servers_.size(); ++i) {
            text = ReplaceAll(text, std::to_string(servers_[i]->Port()), "@PORT" + std::to_string(i) + "@", true);
        }
        return text;
    }

    /// Leaves transcript, trace and ports in out_.
    /// @return the module's prints
    std::vector<std::string> Run(int level) {
        for (const fs::path& left : {fs::path("/etc/kestrel"), fs::path("/opt/kestrel"), out_}) {
            fs::remove_all(left);
        }
        fs::create_directories(out_);
        if (fs::exists(GetParam() / "Notifications.xml")) {
            std::string text = Read(GetParam() / "Notifications.xml");
            for (std::size_t i = 0; i < servers_.size(); ++i) {
                text = ReplaceAll(text, "@PORT" + std::to_string(i) + "@", std::to_string(servers_[i]->Port()));
            }
            fs::create_directories(kNotificationFile.parent_path());
            std::ofstream(kNotificationFile) << text;
        }
        if (fs::exists(GetParam() / "ravlo.ini")) {
            fs::create_directories(kRaidManagerDirectory);
            fs::copy(GetParam() / "ravlo.ini", kRaidManagerDirectory);
        }
        const fs::path state = GetParam() / "state.json";
        std::ostringstream command;
        command << EM_AGENT " --module " EM_LIBRARY " --scenario " << GetParam() / "scenario.jsonl"
                << " --state " << (fs::exists(state) ? state : GetParam().parent_path() / "state.json")
                << " --transcript " << out_ / "transcript"
                << " --trace-file " << out_ / "trace"
                << " --trace " << level << " " << ReplaceAll(Read(GetParam() / "options"), "\n", " ");
        if (fs::exists(GetParam() / "ports")) {
            command << " --port-log " << out_ / "ports";
        }
        EXPECT_EQ(std::system(command.str().c_str()), 0);
        const std::vector<std::string> trace = Lines(WithoutPorts(Read(out_ / "trace")));
        for (const std::string& row : Lines(Read(GetParam() / "trace-holds"))) {
            const auto holds = [wanted = std::regex(row.substr(1))](const std::string& line) {
                return std::regex_search(line, wanted);
            };
            EXPECT_EQ(std::any_of(trace.begin(), trace.end(), holds), row[0] == '+') << row;
        }
        std::vector<std::string> prints;
        for (std::string line : trace) {
            for (const char* other :
                 {"creating event", "CThread::", "CDevice", "COsInfo::", "pthread_create", "THREAD_RETURN"}) {
                line.resize(std::min(line.find(other), line.size()));  // prints that begin without a new line
            }
            if (line.starts_with("EM_") || line.starts_with("EM DLL") || line.starts_with("###")) {
                prints.push_back(line);
            }
        }
        PutLast(prints, " (RET) ");
        return prints;
    }

    /// The prints of the last run, each behind the level from which on it is printed.
    std::string Traces(const std::vector<std::string>& all) {
        std::vector<std::string> shown[kLevels];
        std::size_t at[kLevels] = {};
        for (int level = 1; level < kLevels; ++level) {
            shown[level] = Run(level);
        }
        std::string traces;
        for (const std::string& print : all) {
            int level = kLevels;
            while (level > 1 && at[level - 1] < shown[level - 1].size() && shown[level - 1][at[level - 1]] == print) {
                ++at[--level];
            }
            traces += std::to_string(level) + " " + print + "\n";
        }
        for (int level = 1; level < kLevels; ++level) {
            EXPECT_EQ(at[level], shown[level].size()) << "level " << level << " is no part of the next";
        }
        return traces;
    }

    static constexpr int kLevels = 4;  // the module's own

    const fs::path kNotificationFile = "/etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml";
    const fs::path out_ = fs::path(::testing::TempDir()) / ("agent-run-" + std::to_string(::getpid()));
    std::vector<std::unique_ptr<CSmtpServer>> servers_;

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
    const std::vector<std::string> prints = Run(kLevels);
    Check("expected.jsonl", WithoutPorts(Transcript(out_ / "transcript")));
    for (std::size_t i = 0; i < servers_.size(); ++i) {
        Check("mails-" + std::to_string(i), Show(servers_[i]->WaitForMails(0)));
        Check("commands-" + std::to_string(i), servers_[i]->Commands());
    }
    Check("ports", Read(out_ / "ports"));
    Check("tones", Tones(out_ / "trace"));
    Check("Notifications.after", WithoutPorts(Read(kNotificationFile)));
    EXPECT_FALSE(fs::exists(kNotificationFile.string() + ".lock"));
    if (fs::exists(GetParam() / "traces")) {
        Check("traces", Traces(prints));
    }
}

INSTANTIATE_TEST_SUITE_P(Module, Scenario, ::testing::ValuesIn(Folders()),
                         [](const auto& scenario) { return scenario.param.filename().string(); });
