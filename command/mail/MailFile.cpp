// SPDX-License-Identifier: Apache-2.0
#include "command/mail/MailFile.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

#include "agent/core/Json.h"
#include "platform/files/UniqueFd.h"

namespace {

constexpr std::size_t kLargestMail = std::size_t{64} << 20;
constexpr int kIntervalMs = 100;

[[noreturn]] void Fail(const std::string& name, int error) {
    throw CAgentError("cannot read " + name + ": " + std::generic_category().message(error));
}

// A pipe that nobody has opened for writing is waited for as well; opening it like this does not wait.
CUniqueFd Open(const std::string& path) {
    CUniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) {
        Fail(path, errno);
    }
    return file;
}

std::string ReadAll(int file, const std::string& name, const std::function<bool()>& goesOn) {
    std::string text;
    for (char piece[65536]; goesOn();) {
        pollfd polled = {.fd = file, .events = POLLIN, .revents = 0};
        if (::poll(&polled, 1, kIntervalMs) <= 0) {
            continue;
        }
        const ssize_t count = ::read(file, piece, sizeof piece);
        if (count == 0) {
            return text;
        }
        if (count > 0) {
            text.append(piece, static_cast<std::size_t>(count));
        } else if (errno != EINTR && errno != EAGAIN) {
            Fail(name, errno);
        }
        if (text.size() > kLargestMail) {
            Fail(name, EFBIG);
        }
    }
    throw CAgentError("reading the mail in " + name + " was broken off");
}

}  // namespace

std::string ReadMailFile(const std::string& path, const std::function<bool()>& goesOn) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    const bool isInput = path == "-";
    const std::string name = isInput ? "standard input" : path;
    const CUniqueFd opened = isInput ? CUniqueFd() : Open(path);
    std::string mail = ReadAll(isInput ? STDIN_FILENO : opened.Get(), name, goesOn);
    mail.erase(0, mail.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
    if (mail.empty()) {
        throw CAgentError("There is no mail in " + name + ": it is empty.");
    }
    if (!IsValidUtf8(mail)) {
        throw CAgentError("The mail in " + name + " holds bytes that are no UTF-8; convert it (iconv -t UTF-8).");
    }
    return mail;
}
