// SPDX-License-Identifier: Apache-2.0
#include "bench/SmtpSink.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kBacklog = 16;

bool Say(int connection, std::string_view answer) {
    return ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(answer.size());
}

/// @param received  what came and was not used yet; loses what is returned
/// @return all up to and with `end`, empty when the client is gone
std::string Take(int connection, std::string& received, std::string_view end) {
    std::size_t at = received.find(end);
    while (at == std::string::npos) {
        char buffer[8192];
        const ssize_t count = ::recv(connection, buffer, sizeof buffer, 0);
        if (count <= 0) {
            return {};
        }
        received.append(buffer, static_cast<std::size_t>(count));
        at = received.find(end);
    }
    std::string taken = received.substr(0, at + end.size());
    received.erase(0, taken.size());
    return taken;
}

}  // namespace

CSmtpSink::CSmtpSink() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_.Get(), any, size) != 0 || ::listen(listener_.Get(), kBacklog) != 0 ||
        ::getsockname(listener_.Get(), any, &size) != 0) {
        throw std::runtime_error("no port for the mail server");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Run(); });
}

CSmtpSink::~CSmtpSink() {
    ::shutdown(listener_.Get(), SHUT_RDWR);  // wakes the thread
    thread_.join();
}

void CSmtpSink::Run() {
    for (;;) {
        const CUniqueFd connection(::accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!connection) {
            return;
        }
        const int on = 1;
        ::setsockopt(connection.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        Serve(connection.Get());
    }
}

void CSmtpSink::Serve(int connection) {
    std::string received;
    bool goesOn = Say(connection, "220 sink\r\n");
    while (goesOn) {
        const std::string command = Take(connection, received, "\r\n");
        if (command.starts_with("DATA")) {
            goesOn = Say(connection, "354 go on\r\n") && !Take(connection, received, "\r\n.\r\n").empty();
            mails_ += goesOn ? 1 : 0;
            goesOn = goesOn && Say(connection, "250 taken\r\n");
        } else if (command.starts_with("QUIT")) {
            Say(connection, "221 bye\r\n");
            return;
        } else {
            goesOn = !command.empty() && Say(connection, "250 ok\r\n");
        }
    }
}
