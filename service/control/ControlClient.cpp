// SPDX-License-Identifier: Apache-2.0
#include "service/control/ControlClient.h"

#include <array>
#include <cerrno>
#include <pwd.h>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

#include "agent/core/Json.h"

namespace {

constexpr std::size_t kLongestLine = 65536;
constexpr std::size_t kUnreadBeforePause = 65536;
constexpr std::uint32_t kMostOwed = 16;
constexpr std::size_t kMostUnread = std::size_t{4} << 20;

std::string PeerOf(int socket) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        return "somebody";
    }
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> buffer{};
    ::getpwuid_r(credentials.uid, &entry, buffer.data(), buffer.size(), &found);
    return (found != nullptr ? std::string(found->pw_name) : "uid " + std::to_string(credentials.uid)) + " (process " +
           std::to_string(credentials.pid) + ")";
}

}  // namespace

CControlClient::CControlClient(CLoop& loop, CUniqueFd socket, std::uint64_t id, OnLine onLine, OnGone onGone)
    : loop_(loop),
      socket_(std::move(socket)),
      id_(id),
      onLine_(std::move(onLine)),
      onGone_(std::move(onGone)),
      peer_(PeerOf(socket_.Get())),
      source_(loop.Watch(socket_.Get(), EPOLLIN, [this] { OnReady(); })) {}

void CControlClient::OnReady() {
    const bool isReading = MayRead();
    if (!isReading && out_.empty()) {
        Drop();  // it has hung up: that is always told
        return;
    }
    Flush();
    if (isReading && !isDropped_) {
        Read();
    }
}

/// One line at a time, which leaves what follows it in the socket: others are served in between.
void CControlClient::Read() {
    std::array<char, 16384> piece{};
    const ssize_t count = ::recv(socket_.Get(), piece.data(), piece.size(), MSG_DONTWAIT | MSG_PEEK);
    if (count < 0) {
        if (errno != EAGAIN && errno != EINTR) {
            Drop();
        }
        return;
    }
    if (count == 0) {
        isAtEnd_ = true;
        if (!in_.empty()) {
            onLine_(*this, std::exchange(in_, {}));  // the last line needs no end
        }
        Watch();
        return;
    }
    const std::string_view seen(piece.data(), static_cast<std::size_t>(count));
    const std::string_view part = seen.substr(0, seen.find('\n'));
    const bool isLine = part.size() < seen.size();
    ::recv(socket_.Get(), piece.data(), part.size() + (isLine ? 1 : 0), MSG_DONTWAIT);
    in_ += part;
    if (in_.size() > kLongestLine) {
        SendError("a line is 65536 bytes long at most");
        Drop();
    } else if (isLine && !in_.empty()) {
        onLine_(*this, std::exchange(in_, {}));
    }
}

void CControlClient::Send(const std::string& json) {
    if (out_.size() > kMostUnread) {
        Drop();
    }
    if (!isDropped_) {
        out_ += json + "\n";
        Flush();
    }
}

void CControlClient::SendMessage(const std::string& kind, const std::string& message) {
    Send("{\"kind\":" + JsonString(kind) + ",\"message\":" + message + "}");
}

void CControlClient::SendError(const std::string& sentence) {
    Send("{\"kind\":\"error\",\"error\":" + JsonString(sentence) + "}");
}

void CControlClient::Flush() {
    while (!out_.empty()) {
        const ssize_t count = ::send(socket_.Get(), out_.data(), out_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0) {
            if (errno == EPIPE || errno == ECONNRESET) {
                Drop();
            }
            break;
        }
        out_.erase(0, static_cast<std::size_t>(count));
    }
    Watch();
}

bool CControlClient::MayRead() const {
    return !isAtEnd_ && owed_ < kMostOwed && out_.size() < kUnreadBeforePause;
}

void CControlClient::Owe() {
    ++owed_;
    Watch();
}

void CControlClient::Settle() {
    --owed_;
    Watch();
}

void CControlClient::EndRequest() {
    --requests_;
    Watch();
}

void CControlClient::Watch() {
    if (isAtEnd_ && owed_ == 0 && requests_ == 0 && out_.empty() && !isSubscribed) {
        Drop();
    }
    if (!isDropped_) {
        const auto in = MayRead() ? std::uint32_t{EPOLLIN} : 0;
        const auto out = out_.empty() ? 0 : std::uint32_t{EPOLLOUT};
        CLoop::ChangeEvents(source_, in | out);
    }
}

/// The object goes a moment later: its callers may still use it.
void CControlClient::Drop() {
    if (!std::exchange(isDropped_, true)) {
        source_ = {};
        dropping_ = loop_.After(std::chrono::milliseconds(0), [this] { onGone_(id_); });
    }
}
