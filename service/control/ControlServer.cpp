// SPDX-License-Identifier: Apache-2.0
#include "service/control/ControlServer.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <grp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "agent/core/Json.h"
#include "service/loop/Journal.h"

namespace {

constexpr std::size_t kMostClients = 100;
constexpr int kBacklog = 64;
constexpr std::chrono::milliseconds kPause{1000};
constexpr mode_t kSocketMode = 0660;
constexpr const char* kGroup = "em-alert";

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw CAgentError("the path of the socket is too long: " + path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

[[noreturn]] void Fail(const std::string& path) {
    throw CAgentError("cannot listen at " + path + ": " + std::generic_category().message(errno));
}

CUniqueFd MakeSocket(const std::string& path) {
    CUniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) {
        Fail(path);
    }
    return socket;
}

// One that is slow to answer (EAGAIN: too many wait for it) lives all the same.
void RefuseOther(const std::string& path, const sockaddr_un& address) {
    const CUniqueFd socket = MakeSocket(path);
    if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 || errno == EAGAIN) {
        throw CAgentError("another service answers at " + path);
    }
    if (errno != ECONNREFUSED && errno != ENOENT) {
        Fail(path);
    }
}

void GiveToGroup(const std::string& path) {
    group entry{};
    group* found = nullptr;
    std::array<char, 16384> buffer{};
    ::getgrnam_r(kGroup, &entry, buffer.data(), buffer.size(), &found);
    // Without the right to give it away, the socket stays with the service's own group.
    if (found != nullptr && ::chown(path.c_str(), static_cast<uid_t>(-1), found->gr_gid) != 0 && errno != EPERM) {
        Fail(path);
    }
}

}  // namespace

CControlServer::CControlServer(CLoop& loop, std::string path, CControlClient::OnLine onLine)
    : loop_(loop), path_(std::move(path)), onLine_(std::move(onLine)) {
    const sockaddr_un address = AddressOf(path_);
    const auto* const where = reinterpret_cast<const sockaddr*>(&address);
    RefuseOther(path_, address);
    struct stat status {};
    if (::lstat(path_.c_str(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode)) {
            throw CAgentError("cannot listen at " + path_ + ": something else than a socket has this name");
        }
        ::unlink(path_.c_str());  // what a killed service left
    }
    socket_ = MakeSocket(path_);
    // Bound while nobody else may use it: the mode is right before the first client comes.
    const mode_t before = ::umask(S_IRWXG | S_IRWXO);
    const bool isBound = ::bind(socket_.Get(), where, sizeof address) == 0;
    ::umask(before);
    if (!isBound) {
        Fail(path_);
    }
    if (::lstat(path_.c_str(), &own_) != 0) {
        Fail(path_);
    }
    GiveToGroup(path_);
    if (::chmod(path_.c_str(), kSocketMode) != 0 || ::listen(socket_.Get(), kBacklog) != 0) {
        Fail(path_);
    }
    source_ = loop.Watch(socket_.Get(), EPOLLIN, [this] { Accept(); });
    pause_ = loop.After(kPause, [] {});  // timers have their descriptor from here on
}

CControlServer::~CControlServer() {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) == 0 && status.st_dev == own_.st_dev && status.st_ino == own_.st_ino) {
        ::unlink(path_.c_str());
    }
}

CControlClient* CControlServer::Find(std::uint64_t id) {
    const auto found = clients_.find(id);
    return found != clients_.end() ? found->second.get() : nullptr;
}

/// What waits to be accepted would call Accept again and again.
void CControlServer::Pause(int error) {
    if (std::exchange(acceptError_, error) != error) {
        Journal(3, "no connection can be taken at " + path_ + ": " + std::generic_category().message(error) +
                       "; tried again every second");
    }
    pause_ = loop_.After(kPause, [this] { CLoop::ChangeEvents(source_, EPOLLIN); });
    CLoop::ChangeEvents(source_, 0);
}

void CControlServer::Accept() {
    CUniqueFd socket(::accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
            Pause(errno);
        }
        return;
    }
    acceptError_ = 0;
    if (clients_.size() >= kMostClients) {
        constexpr std::string_view kBusy = "{\"kind\":\"error\",\"error\":\"too many connections; try again later\"}\n";
        ::send(socket.Get(), kBusy.data(), kBusy.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        return;
    }
    const std::uint64_t id = ++lastId_;
    clients_.emplace(id, std::make_unique<CControlClient>(loop_, std::move(socket), id, onLine_,
                                                          [this](std::uint64_t gone) { clients_.erase(gone); }));
}
