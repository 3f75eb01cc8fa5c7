#pragma once

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/SmtpServer.h"

/// @param whole  not where further digits follow or precede
inline std::string ReplaceAll(std::string text, const std::string& from, const std::string& to, bool whole = false) {
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

/// Runs the agent with the library on a private machine, with SMTP servers and a notification file.
class AgentRun : public ::testing::Test {
protected:
    using Path = std::filesystem::path;

    void SetUp() override {
        std::filesystem::remove_all("/etc/kestrel");
        std::filesystem::remove_all("/opt/kestrel");
        std::filesystem::remove_all(out_);
        std::filesystem::create_directories(out_);
    }

    void TearDown() override { std::filesystem::remove_all(out_); }

    void StartServer(const std::vector<std::string>& options) {
        servers_.push_back(std::make_unique<CSmtpServer>(options));
    }

    /// @param text  @PORT0@, @PORT1@ become the servers' ports
    void WriteNotificationFile(std::string text) const {
        for (std::size_t i = 0; i < servers_.size(); ++i) {
            text = ReplaceAll(text, "@PORT" + std::to_string(i) + "@", std::to_string(servers_[i]->Port()));
        }
        std::filesystem::create_directories(kNotificationFile.parent_path());
        std::ofstream(kNotificationFile) << text;
    }

    /// The other way round, for texts that are compared.
    std::string WithoutPorts(std::string text) const {
        for (std::size_t i = 0; i < servers_.size(); ++i) {
            text = ReplaceAll(text, std::to_string(servers_[i]->Port()), "@PORT" + std::to_string(i) + "@", true);
        }
        return text;
    }

    /// Leaves transcript and trace in out_.
    /// @param options  the trace level, and further ones
    /// @return the agent's exit status
    int RunAgent(const Path& state, const Path& scenario, const std::string& options = "--trace 5") const {
        std::ostringstream command;
        command << EM_AGENT " --module " EM_LIBRARY " --state " << state << " --scenario " << scenario
                << " --transcript " << out_ / "transcript"
                << " --trace-file " << out_ / "trace"
                << " " << options;
        return std::system(command.str().c_str());
    }

    static std::string Read(const Path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const Path kNotificationFile = "/etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml";
    const Path out_ = Path(::testing::TempDir()) / ("agent-run-" + std::to_string(::getpid()));
    std::vector<std::unique_ptr<CSmtpServer>> servers_;
};
