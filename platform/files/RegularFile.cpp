// SPDX-License-Identifier: Apache-2.0
#include "platform/files/RegularFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "platform/files/UniqueFd.h"

namespace {

constexpr std::size_t kReadSize = 4096;  // beyond the size that a file tells

int ReadToEnd(int fd, std::size_t size, std::size_t limit, std::string& text) {
    std::size_t length = text.size();
    while (length <= limit) {
        text.resize(std::max(size, length) + kReadSize);
        const ssize_t count = TEMP_FAILURE_RETRY(::read(fd, text.data() + length, text.size() - length));
        if (count <= 0) {
            text.resize(length);
            return count < 0 ? errno : 0;
        }
        length += static_cast<std::size_t>(count);
    }
    return EFBIG;
}

}  // namespace

int ReadRegularFile(int fd, std::size_t limit, std::string& text, struct stat& status) {
    if (::fstat(fd, &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size > limit) {
        return EFBIG;
    }
    return ReadToEnd(fd, size, limit, text);
}

int ReadRegularFile(const std::string& path, std::size_t limit, std::string& text, struct stat& status) {
    const CUniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    std::string content;
    const int error = file ? ReadRegularFile(file.Get(), limit, content, status) : errno;
    text = std::move(content);
    return error;
}

int ReadRegularFile(const std::string& path, std::size_t limit, std::string& text) {
    struct stat status {};
    return ReadRegularFile(path, limit, text, status);
}
