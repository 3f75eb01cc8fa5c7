#pragma once

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
            text = std::regex_replace(text, std::regex("@PORT" + std::to_string(i) + "@"),
                                      std::to_string(servers_[i]->Port()));
        }
        std::filesystem::create_directories(kNotificationFile.parent_path());
        std::ofstream(kNotificationFile) << text;
    }

    /// The other way round, for texts that are compared.
    std::string WithoutPorts(std::string text) const {
        for (std::size_t i = 0; i < servers_.size(); ++i) {
            text = std::regex_replace(text, std::regex("\\b" + std::to_string(servers_[i]->Port()) + "\\b"),
                                      "@PORT" + std::to_string(i) + "@");
        }
        return text;
    }

    /// Leaves transcript and trace in out_.
    /// @return the agent's exit status
    int RunAgent(const Path& state, const Path& scenario) const {
        std::ostringstream command;
        command << EM_AGENT " --module " EM_LIBRARY " --trace 5 --state " << state << " --scenario " << scenario
                << " --transcript " << out_ / "transcript"
                << " --trace-file " << out_ / "trace";
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
