// SPDX-License-Identifier: Apache-2.0
#include "xml/TextFile.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/DirectoryEntries.h"
#include "platform/files/RegularFile.h"
#include "platform/files/UniqueFd.h"
#include "platform/files/WriteAll.h"
#include "xml/FileAttributes.h"

namespace {

constexpr std::string_view kMark = ".em_alert.";  // no other program's name for a file beside this one
constexpr std::string_view kRandomPart = "XXXXXX";

int ErrnoUnless(bool success) {
    return success ? 0 : errno;
}

/// A new file beside the one that it is going to replace; it goes away with the object unless it was moved there.
class CTemporaryFile {
public:
    CTemporaryFile() = default;
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;
    ~CTemporaryFile() {
        if (fd_) {
            ::unlink(name_.c_str());
        }
    }

    /// @param prefix  the path of the new file without its random part
    int Create(const std::string& prefix) {
        constexpr int kAttempts = 100;
        for (int i = 0; i < kAttempts; ++i) {
            name_ = prefix + std::string(kRandomPart);
            fd_.Reset(::mkostemp(name_.data(), O_CLOEXEC));
            if (!fd_) {
                return errno;
            }
            // The lock tells RemoveLeftovers that the writer lives. Another process may have found the file before it
            // was locked: that one holds the lock then, or has removed the file already.
            struct stat own {};
            const bool isLocked = ::flock(fd_.Get(), LOCK_EX | LOCK_NB) == 0;
            if (isLocked ? ::fstat(fd_.Get(), &own) != 0 : errno != EWOULDBLOCK) {
                return errno;
            }
            if (own.st_nlink != 0) {
                return 0;
            }
        }
        return EWOULDBLOCK;
    }

    /// Takes owner, access-control list, extended attributes and mode of an existing file. What cannot be kept is an
    /// error: others would lose the file, or strangers could read it. A host that must not change owners can still
    /// replace a file of its own.
    int TakeRightsOf(const std::string& path) const {
        struct stat old {};
        if (::stat(path.c_str(), &old) != 0) {
            return errno == ENOENT ? 0 : errno;
        }
        struct stat own {};
        if (::fstat(fd_.Get(), &own) != 0) {
            return errno;
        }
        const bool isOwned = own.st_uid == old.st_uid && own.st_gid == old.st_gid;
        if (!isOwned && ::fchown(fd_.Get(), old.st_uid, old.st_gid) != 0) {
            return errno;
        }
        const int error = CopyFileAttributes(path, fd_.Get());
        return error != 0 ? error : ErrnoUnless(::fchmod(fd_.Get(), old.st_mode & 07777) == 0);
    }

    int Write(const std::string& text) const {
        const int error = WriteAll(fd_.Get(), text);
        return error != 0 ? error : ErrnoUnless(::fsync(fd_.Get()) == 0);
    }

    int MoveTo(const std::string& path) {
        const int error = ErrnoUnless(::rename(name_.c_str(), path.c_str()) == 0);
        if (error == 0) {
            fd_.Reset();
        }
        return error;
    }

private:
    CUniqueFd fd_;
    std::string name_;
};

/// Removes the temporary files of writers that died before they could.
void RemoveLeftovers(const std::string& directory, const std::string& prefix) {
    ForEachEntry(directory, [&](const std::string& name) {
        if (name.size() != prefix.size() + kRandomPart.size() || !name.starts_with(prefix)) {
            return;
        }
        const std::string path = directory + name;
        const CUniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (::flock(fd.Get(), LOCK_EX | LOCK_NB) == 0) {
            ::unlink(path.c_str());
        }
    });
}

/// With a "/" at the end.
std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

/// Goes to where a path leads: a link at its end is followed, whether something stands behind it or not.
int FollowLinks(std::string& path) {
    constexpr int kMaxLinks = 40;  // as many as the kernel follows
    char link[PATH_MAX];
    for (int i = 0; i < kMaxLinks; ++i) {
        const ssize_t length = ::readlink(path.c_str(), link, sizeof link);
        if (length == -1) {
            return errno == EINVAL || errno == ENOENT ? 0 : errno;
        }
        path = (link[0] == '/' ? "" : DirectoryOf(path)).append(link, static_cast<std::size_t>(length));
    }
    return ELOOP;
}

int SyncDirectory(const std::string& directory) {
    const CUniqueFd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return ErrnoUnless(fd && ::fsync(fd.Get()) == 0);
}

}  // namespace

int ReadTextFile(const std::string& path, std::string& text) {
    const int error = ReadRegularFile(path, kMaxTextFileSize, text);
    return error == EISDIR ? EINVAL : error;
}

int ReplaceTextFile(const std::string& path, const std::string& text) {
    std::string target = path;
    int error = FollowLinks(target);
    if (error != 0) {
        return error;
    }
    const std::string directory = DirectoryOf(target);
    const std::string prefix = "." + target.substr(target.rfind('/') + 1) + std::string(kMark);
    RemoveLeftovers(directory, prefix);

    CTemporaryFile file;
    error = file.Create(directory + prefix);
    if (error == 0) {
        error = file.TakeRightsOf(target);
    }
    if (error == 0) {
        error = file.Write(text);
    }
    if (error == 0) {
        error = file.MoveTo(target);
    }
    return error != 0 ? error : SyncDirectory(directory);
}
