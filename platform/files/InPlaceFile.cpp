// SPDX-License-Identifier: Apache-2.0
#include "platform/files/InPlaceFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/RegularFile.h"

namespace {

constexpr std::size_t kMaxFileSize = std::size_t{64} << 20;
constexpr std::size_t kSmallFile = 16384;

/// @return how many bytes were written; fewer than all when the kernel refused the rest
std::size_t WriteAt(int file, std::string_view bytes, std::size_t offset) {
    std::size_t end = offset;
    while (!bytes.empty()) {
        const ssize_t count = TEMP_FAILURE_RETRY(::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(end)));
        if (count <= 0) {
            break;
        }
        end += static_cast<std::size_t>(count);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return end - offset;
}

}  // namespace

bool CInPlaceFile::Load(const char* path, std::string& text, int flags) {
    // O_NONBLOCK: opening a pipe of that name must not wait for its other end.
    file_.Reset(::open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0644));
    if (file_ && flags == O_RDONLY) {
        // What reads short of a small buffer is a whole file: asking for its size would cost as much as reading it.
        char small[kSmallFile];
        const ssize_t count = ::read(file_.Get(), small, sizeof small);
        text.assign(small, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (!text.empty() && text.size() < sizeof small) {
            return true;
        }
    }
    if (!file_) {
        return false;
    }
    struct stat status {};
    const int error = ReadRegularFile(file_.Get(), kMaxFileSize, text, status);
    errno = error;
    return error == 0;
}

bool CInPlaceFile::Replace(std::string_view text, std::size_t begin, std::size_t end, std::string_view replacement) {
    const int file = file_.Get();
    const auto oldSize = static_cast<off_t>(text.size());
    std::string tail(replacement);
    tail += text.substr(end);
    const std::size_t room = std::min(tail.size(), text.size() - begin);
    const std::string_view inside = std::string_view(tail).substr(0, room);
    const std::string_view beyond = std::string_view(tail).substr(room);

    std::size_t overwritten{};
    bool done = WriteAt(file, beyond, text.size()) == beyond.size();
    if (done) {
        overwritten = WriteAt(file, inside, begin);
        done = overwritten == inside.size() && ::ftruncate(file, static_cast<off_t>(begin + tail.size())) == 0;
    }
    if (!done) {
        const int error = errno;
        const bool restored =
            WriteAt(file, text.substr(begin, overwritten), begin) == overwritten && ::ftruncate(file, oldSize) == 0;
        errno = restored ? error : EIO;
        return false;
    }
    return file_.Reset() == 0;
}

void CInPlaceFile::Remove(const char* path) {
    const int error = errno;
    const std::unique_ptr<char, decltype(&::free)> target(::realpath(path, nullptr), &::free);
    if (target != nullptr) {
        ::unlink(target.get());
    }
    file_.Reset();
    errno = error;
}

bool CInPlaceFile::SetMode(mode_t mode) {
    return ::fchmod(file_.Get(), mode) == 0;
}
