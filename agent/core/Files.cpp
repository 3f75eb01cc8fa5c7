// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Files.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "agent/core/Json.h"

namespace {

constexpr std::size_t kLargestFile = std::size_t{64} << 20;
constexpr mode_t kOwnersOnly = 0600;

[[noreturn]] void Fail(const char* what, const std::string& path, int error) {
    throw CAgentError(std::string("cannot ") + what + " " + path + ": " + std::generic_category().message(error));
}

void MakeDirectories(const std::filesystem::path& directory) {
    if (directory.empty() || std::filesystem::is_directory(directory)) {
        return;
    }
    MakeDirectories(directory.parent_path());
    if (::mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        Fail("make", directory, errno);
    }
}

}  // namespace

void MakeParentDirectory(const std::string& path) {
    MakeDirectories(std::filesystem::path(path).parent_path());
}

std::ifstream OpenInput(const std::string& path) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        Fail("read", path, EISDIR);  // which opening does not tell
    }
    std::ifstream file(path);
    if (!file) {
        Fail("read", path, errno);
    }
    return file;
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream file = OpenInput(path);
    std::string text;
    char piece[65536];
    while (file.read(piece, sizeof piece), file.gcount() > 0) {
        text.append(piece, static_cast<std::size_t>(file.gcount()));
        if (text.size() > kLargestFile) {
            Fail("read", path, EFBIG);
        }
    }
    if (file.bad()) {
        Fail("read", path, errno);
    }
    return text;
}

OwnedFile OpenOutput(const std::string& path, bool append) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : O_TRUNC), kOwnersOnly);
    OwnedFile file(fd < 0 ? nullptr : ::fdopen(fd, append ? "a" : "w"), std::fclose);
    if (file == nullptr) {
        Fail("write", path, errno);
    }
    return file;
}

void ReplaceFile(const std::string& path, const std::string& text, mode_t mode) {
    MakeParentDirectory(path);
    std::string unfinished = path + ".XXXXXX";
    const int fd = ::mkostemp(unfinished.data(), O_CLOEXEC);  // with mode 0600
    OwnedFile file(fd < 0 ? nullptr : ::fdopen(fd, "w"), std::fclose);
    const bool written = file != nullptr && ::fchmod(fd, mode) == 0 &&
                         std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
                         std::fflush(file.get()) == 0 && ::fsync(fd) == 0 &&
                         ::rename(unfinished.c_str(), path.c_str()) == 0;
    if (!written) {
        const int error = errno;
        if (fd >= 0) {
            ::unlink(unfinished.c_str());
        }
        Fail("write", path, error);
    }
}

int LockWithin(int descriptor, std::chrono::milliseconds time) {
    constexpr std::chrono::milliseconds kInterval{20};
    for (std::chrono::milliseconds waited{0};; waited += kInterval) {
        const int error = ::flock(descriptor, LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
        if (error != EWOULDBLOCK || waited >= time) {
            return error;
        }
        std::this_thread::sleep_for(kInterval);
    }
}

void KeepStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        // For reading alone: what is written to a closed output fails, as it does without this.
        if (::fcntl(fd, F_GETFD) < 0 && ::open("/dev/null", O_RDONLY) != fd) {
            std::abort();  // lower ones are taken: the system has no /dev/null
        }
    }
}
