// SPDX-License-Identifier: Apache-2.0
#include "testing/SmtpServer.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <rapidjson/document.h>

#include "platform/files/UniqueFd.h"

namespace {

constexpr char kPython[] = "/usr/bin/python3";  // the one that Debian's packages are for

std::string Base64Decoded(const std::string& text) {
    static const std::string kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned int bits = 0;
    int count = 0;
    for (const char c : text.substr(0, text.find('='))) {
        bits = bits << 6 | static_cast<unsigned int>(kDigits.find(c));
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFF);
        }
    }
    return bytes;
}

std::string Text(const rapidjson::Value& value) {
    return value.IsString() ? std::string(value.GetString(), value.GetStringLength()) : std::string();
}

CSmtpServer::Mail ParsedMail(const std::string& line) {
    rapidjson::Document json;
    json.Parse(line.c_str());
    CSmtpServer::Mail mail{
        Text(json["from"]),    {}, Base64Decoded(Text(json["data"])), json["tls"].GetBool(), Text(json["user"]),
        Text(json["password"])};
    for (const auto& recipient : json["to"].GetArray()) {
        mail.to.push_back(Text(recipient));
    }
    return mail;
}

std::string FileText(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

}  // namespace

CSmtpServer::CSmtpServer(std::vector<std::string> options) {
    std::string name = std::filesystem::temp_directory_path() / "smtpXXXXXX";
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no directory for the SMTP server");
    }
    directory_ = name;
    // By its whole name: Python looks for its modules beside what it was called as.
    std::vector<std::string> arguments{kPython,      EM_SMTP_SERVER,           "--mails",       directory_ + "/mails",
                                       "--commands", directory_ + "/commands", "--certificate", Certificate()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    Start(arguments);
}

void CSmtpServer::Start(std::vector<std::string> arguments) {
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe for the SMTP server");
    }
    const CUniqueFd output(pipe[0]);
    CUniqueFd serverOutput(pipe[1]);
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, serverOutput.Get(), STDOUT_FILENO);
    const int failure = ::posix_spawn(&pid_, kPython, &actions, nullptr, argv.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    serverOutput.Reset();  // so that the read ends when the server dies

    char line[16] = "";
    if (failure != 0 || ::read(output.Get(), line, sizeof line - 1) <= 0) {
        throw std::runtime_error("the SMTP server does not start");
    }
    port_ = static_cast<unsigned short>(std::stoi(line));
}

CSmtpServer::~CSmtpServer() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    std::filesystem::remove_all(directory_);
}

std::vector<CSmtpServer::Mail> CSmtpServer::WaitForMails(std::size_t count) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        const std::string text = FileText(directory_ + "/mails");
        const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n'));
        if (lines >= count || std::chrono::steady_clock::now() > deadline) {
            std::vector<Mail> mails;
            std::istringstream stream(text);
            for (std::string line; mails.size() < lines && std::getline(stream, line);) {
                mails.push_back(ParsedMail(line));
            }
            return mails;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

std::string CSmtpServer::Commands() const {
    return FileText(directory_ + "/commands");
}
