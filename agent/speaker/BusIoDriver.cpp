// SPDX-License-Identifier: Apache-2.0
#include "agent/speaker/BusIoDriver.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <system_error>

namespace {

constexpr std::string_view kNode = "/dev/pci/smbus";
constexpr unsigned long kPortWrite = 0x400C736E;
constexpr unsigned long kPortRead = 0x800C736D;

// Which descriptors stand for the node. Every close of the process looks here, so there is no lock.
std::array<std::atomic<bool>, 1024> owned{};

std::string FlagNames(int flags) {
    const int mode = flags & O_ACCMODE;
    std::string names = mode == O_RDWR ? "O_RDWR" : (mode == O_WRONLY ? "O_WRONLY" : "O_RDONLY");
    constexpr std::pair<int, const char*> kNames[] = {
        {O_CREAT, "|O_CREAT"},   {O_EXCL, "|O_EXCL"},         {O_TRUNC, "|O_TRUNC"},
        {O_APPEND, "|O_APPEND"}, {O_NONBLOCK, "|O_NONBLOCK"}, {O_CLOEXEC, "|O_CLOEXEC"},
    };
    for (const auto& [flag, name] : kNames) {
        if ((flags & flag) != 0) {
            names += name;
        }
    }
    return names;
}

std::FILE* OpenLog(const std::string& path) {
    if (path.empty()) {
        return nullptr;
    }
    std::FILE* file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return file;
}

}  // namespace

struct CBusIoDriver::PortRequest {
    std::uint32_t port;
    std::uint32_t width;
    std::uint32_t value;
};

std::atomic<CBusIoDriver*> CBusIoDriver::active_{nullptr};

CBusIoDriver::CBusIoDriver(BusIoDriverOptions options)
    : onTone_(std::move(options.onTone)),
      portLog_(OpenLog(options.portLogFile)),
      recorder_(options.wavFile.empty() ? nullptr : std::make_unique<CWavWriter>(options.wavFile)) {
    active_ = this;
}

CBusIoDriver::~CBusIoDriver() {
    active_ = nullptr;
    for (std::atomic<bool>& descriptor : owned) {
        descriptor = false;  // what is still open is a plain descriptor from now on
    }
    try {
        const std::string line = recorder_.Sound(0, std::chrono::steady_clock::now());
        if (!line.empty() && onTone_) {
            onTone_(line);
        }
    } catch (...) {  // NOLINT(bugprone-empty-catch): the line of a tone that was cut off is all that is lost
    }
}

bool CBusIoDriver::IsNode(const char* path) {
    return path != nullptr && path == kNode;
}

bool CBusIoDriver::Owns(int fd) {
    return fd >= 0 && static_cast<std::size_t>(fd) < owned.size() && owned[static_cast<std::size_t>(fd)];
}

int CBusIoDriver::Opened(int fd, int flags) noexcept {
    if (static_cast<std::size_t>(fd) >= owned.size()) {
        return -EMFILE;
    }
    try {
        Log("open " + FlagNames(flags));
    } catch (const std::exception&) {
        return -ENOMEM;
    }
    owned[static_cast<std::size_t>(fd)] = true;
    return 0;
}

bool CBusIoDriver::Closing(int fd) noexcept {
    if (!Owns(fd) || !owned[static_cast<std::size_t>(fd)].exchange(false)) {
        return false;
    }
    try {
        Log("close");
    } catch (...) {  // NOLINT(bugprone-empty-catch): the descriptor is closed, with or without its line
    }
    return true;
}

int CBusIoDriver::Request(unsigned long code, void* argument) noexcept {
    try {
        return Access(code, argument);
    } catch (...) {
        return -ENOMEM;
    }
}

int CBusIoDriver::Access(unsigned long code, void* argument) {
    PortRequest request{};
    const bool known = code == kPortWrite || code == kPortRead;
    if (!known || argument == nullptr) {
        const int error = known ? EFAULT : ENOTTY;
        std::array<char, 80> line{};
        std::snprintf(line.data(), line.size(), "request 0x%08lX refused (%s)", code, ::strerrorname_np(error));
        Log(line.data());
        return -error;
    }
    std::memcpy(&request, argument, sizeof request);

    std::string tone;
    {
        const std::lock_guard guard(lock_);
        if (code == kPortRead) {
            std::uint32_t value = 0;
            const int error = ports_.Read(request.port, request.width, value);
            LogAccess("read", request, value, error);
            if (error == 0) {
                std::memcpy(argument, &value, sizeof value);
            }
            return -error;
        }
        const int error = ports_.Write(request.port, request.width, request.value);
        LogAccess("write", request, request.value, error);
        if (error != 0) {
            return -error;
        }
        tone = recorder_.Sound(ports_.AudibleDivisor(), std::chrono::steady_clock::now());
    }
    if (!tone.empty() && onTone_) {
        onTone_(tone);
    }
    return 0;
}

void CBusIoDriver::Log(const std::string& line) {
    const std::lock_guard guard(lock_);
    if (portLog_ != nullptr) {
        std::fprintf(portLog_.get(), "%s\n", line.c_str());
        std::fflush(portLog_.get());
    }
}

/// The caller holds the lock.
void CBusIoDriver::LogAccess(const char* verb, const PortRequest& request, std::uint32_t value, int error) {
    if (portLog_ == nullptr) {
        return;
    }
    std::fprintf(portLog_.get(), "%s 0x%02X width %u value 0x%02X", verb, request.port, request.width, value);
    if (error != 0) {
        std::fprintf(portLog_.get(), " refused (%s)", ::strerrorname_np(error));
    }
    std::fputc('\n', portLog_.get());
    std::fflush(portLog_.get());
}
