// SPDX-License-Identifier: Apache-2.0
#include "command/link/ServiceClient.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

#include "agent/core/AnswerTable.h"
#include "agent/core/Json.h"
#include "sip/Vocabulary.h"

namespace {

using Document = CRapidJsonUtil::Document;
using std::chrono::milliseconds;

constexpr milliseconds kInterval{100};
constexpr std::size_t kLongestLine = std::size_t{16} << 20;

std::string TextOf(const CRapidJsonUtil::value& object, const char* key) {
    const CRapidJsonUtil::value* found = CRapidJsonUtil::Find(object, rapidjson::StringRef(key));
    return found != nullptr && found->IsString() ? std::string(found->GetString(), found->GetStringLength())
                                                 : std::string();
}

std::string MemberOf(const CRapidJsonUtil::value& object, const char* key) {
    const CRapidJsonUtil::value* found = CRapidJsonUtil::Find(object, rapidjson::StringRef(key));
    return found != nullptr ? JsonText(*found) : "null";
}

// A command as a line of a scenario writes it.
std::string CommandText(const Command& command) {
    CRapidJsonUtil::Document message = ParseJson(MessageText(command));
    const CRapidJsonUtil::value* found = FindCommand(message, 0);
    return found != nullptr ? JsonText(*found) : "{}";
}

// @return none when no service answers at this path
CUniqueFd ConnectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw CAgentError("the path of the socket is too long: " + path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    CUniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket && ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        return socket;
    }
    if (errno == ENOENT || errno == ECONNREFUSED || errno == ENOTDIR) {
        return {};
    }
    throw CAgentError("cannot connect to the service at " + path + ": " + std::generic_category().message(errno) +
                      (errno == EACCES ? " (members of the socket's group may)" : ""));
}

}  // namespace

std::unique_ptr<CServiceClient> CServiceClient::Connect(const std::string& path) {
    CUniqueFd socket = ConnectTo(path);
    return socket ? std::unique_ptr<CServiceClient>(new CServiceClient(std::move(socket), path)) : nullptr;
}

void CServiceClient::Fail(const std::string& reason) {
    isOver_ = true;
    throw CAgentError("the service at " + path_ + ": " + reason);
}

/// The service may have been restarted since the last command of a console.
void CServiceClient::ConnectAgain() {
    pollfd polled = {.fd = socket_.Get(), .events = POLLRDHUP, .revents = 0};
    if (!isOver_ && ::poll(&polled, 1, 0) == 0) {
        return;
    }
    socket_ = ConnectTo(path_);
    read_.clear();
    isOver_ = false;
    if (!socket_) {
        Fail("it does not answer any more");
    }
}

void CServiceClient::Send(const std::string& line) {
    ConnectAgain();
    const std::string text = line + "\n";
    for (std::size_t sent = 0; sent < text.size();) {
        const ssize_t count =
            TEMP_FAILURE_RETRY(::send(socket_.Get(), text.data() + sent, text.size() - sent, MSG_NOSIGNAL));
        if (count < 0) {
            Fail("sending failed: " + std::generic_category().message(errno));
        }
        sent += static_cast<std::size_t>(count);
    }
}

bool CServiceClient::ReadMore(milliseconds time) {
    pollfd polled = {.fd = socket_.Get(), .events = POLLIN, .revents = 0};
    if (::poll(&polled, 1, static_cast<int>(time.count())) <= 0) {
        return false;
    }
    std::array<char, 65536> buffer{};
    const ssize_t count = ::read(socket_.Get(), buffer.data(), buffer.size());
    if (count == 0) {
        Fail("it has hung up");
    }
    if (count < 0) {
        Fail("reading failed: " + std::generic_category().message(errno));
    }
    read_.append(buffer.data(), static_cast<std::size_t>(count));
    if (read_.size() > kLongestLine) {
        Fail("a line has no end");
    }
    return true;
}

Document CServiceClient::ParseLine(const std::string& line) {
    try {
        return ParseJson(line);
    } catch (const CAgentError& error) {
        Fail(std::string("it has sent a line that is ") + error.what());
    }
}

std::optional<Document> CServiceClient::NextLine(milliseconds time) {
    const auto deadline = std::chrono::steady_clock::now() + time;
    for (;;) {
        if (const auto end = read_.find('\n'); end != std::string::npos) {
            const std::string line = read_.substr(0, end);
            read_.erase(0, end + 1);
            return ParseLine(line);
        }
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() < 0 || !ReadMore(left)) {
            return std::nullopt;
        }
    }
}

Document CServiceClient::WaitFor(const std::function<bool(const Document&)>& isWanted) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kLongestAnswerSeconds);
    while (std::chrono::steady_clock::now() < deadline) {
        if (auto line = NextLine(kInterval)) {
            const std::string kind = TextOf(*line, "kind");
            if (kind == "error") {
                Fail(TextOf(*line, "error"));
            } else if (kind == "trace") {
                traces_.push_back(TextOf(*line, "text"));
            } else if (isWanted(*line)) {
                return std::move(*line);
            }
        } else if (!GoesOn(traces_)) {
            HangUp();
            throw CBrokenOff();
        }
    }
    Fail("it has not answered within " + std::to_string(kLongestAnswerSeconds) + " seconds");
}

std::string CServiceClient::Query(const std::string& line, const char* kind, const char* member) {
    traces_.clear();
    Send(line);
    return MemberOf(WaitFor([&](const Document& answer) { return TextOf(answer, "kind") == kind; }), member);
}

ModuleAnswer CServiceClient::Ask(Command request) {
    traces_.clear();
    Send("{\"request\":" + CommandText(request) + "}");
    Command answer;
    // The reply may overtake the return of its request.
    WaitFor([&](const Document& line) {
        const std::string kind = TextOf(line, "kind");
        if (kind != "returned" && kind != "reply") {
            return false;
        }
        Command command = CurrentCommand(MemberOf(line, "message"), 0);
        const bool isFinal = command.oc == request.oc && (kind == "reply" || command.st != kAnswerFollows);
        if (isFinal) {
            answer = std::move(command);
        }
        return isFinal;
    });
    return {.command = answer, .traces = std::exchange(traces_, {})};
}

Command CServiceClient::AgentAnswer(const Command& question) {
    CAnswerTable answers;
    answers.Load(Query(R"({"ask":"settings"})", "settings", "answers"));
    return answers.Find(question);
}

void CServiceClient::ChangeSetting(std::uint32_t id, const std::string& data) {
    Command command;
    command.oc = kReadConfigurationValue;
    command.oe = id;
    command.data = data;
    Send("{\"set\":" + CommandText(command) + "}");
    command.oc = kWriteConfigurationValue;
    Query("{\"notice\":" + CommandText(command) + "}", "delivered", "kind");
}

std::string CServiceClient::Status() {
    return Query(R"({"ask":"status"})", "status", "status");
}

std::string CServiceClient::PendingAlerts() {
    return Query(R"({"ask":"pending"})", "pending", "alerts");
}

std::size_t CServiceClient::Acknowledge() {
    return ParseNumber(Query(R"({"acknowledge":true})", "acknowledged", "alerts")).value_or(0);
}
