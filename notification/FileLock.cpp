// SPDX-License-Identifier: Apache-2.0
#include "notification/FileLock.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "notification/Directories.h"
#include "platform/diagnostics/Trace.h"
#include "xml/XmlText.h"

namespace {

/// The only flock error that is worth a retry, and one that Linux never reports. A lock that another process holds
/// (EWOULDBLOCK) is meant to fail at once.
constexpr int kSharingViolation = 32;
constexpr int kRetryIntervalMs = 100;
constexpr std::chrono::milliseconds kPollInterval{2};
constexpr std::size_t kMaxHolderLength = 255;

std::string LockFileName(const char* path) {
    return (std::string(path) + ".lock").substr(0, CFileLock::kMaxPathLength);
}

/// True when a path still leads to the file behind a descriptor.
bool IsSameFile(int fd, const std::string& path) {
    struct stat open {};
    struct stat named {};
    return ::fstat(fd, &open) == 0 && ::stat(path.c_str(), &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

void TraceLockable(bool isLockable) {
    EM_TRACE(3, "\nCFileLock::Lock     : fileIsLockable = %s\n", isLockable ? "true" : "false");
}

}  // namespace

class CFileLock::CDeadline {
public:
    explicit CDeadline(int timeoutMs) : end_(Clock::now() + std::chrono::milliseconds(timeoutMs)) {}

    /// Sleeps for a moment.
    /// @return false when the time is up
    bool Wait() const {
        if (Clock::now() >= end_) {
            return false;
        }
        std::this_thread::sleep_for(kPollInterval);
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end_;
};

CFileLock::~CFileLock() {
    if (fd_) {
        EM_TRACE(5, "\nCFileLock           :   release file lock using file %s", path_.c_str());
        Release(path_);
    }
}

bool CFileLock::Remember(bool success) {
    if (!success) {
        lastError_ = static_cast<unsigned int>(errno);
    }
    return success;
}

bool CFileLock::Lock(const char* path, const char* owner, int timeoutMs) {
    holder_.clear();
    if (path == nullptr || *path == '\0') {
        lastError_ = EINVAL;
        return false;
    }
    EM_TRACE(5, "\nCFileLock           :   apply file lock using file %s...", path);
    const std::string lockFile = LockFileName(path);
    EM_TRACE(3, "\nCFileLock::Lock     : LockFileName.c_str() = %s\n", lockFile.c_str());
    const std::string directory = lockFile.substr(0, lockFile.rfind('/'));
    EM_TRACE(3, "\nCFileLock::Lock     : LockFileDir.c_str() = %s\n", directory.c_str());

    const bool hasSuffix = lockFile.size() > std::string_view(path).size();
    const int error = hasSuffix ? CreateDirectories(directory) : ENAMETOOLONG;
    if (error != 0) {
        lastError_ = static_cast<unsigned int>(error);
        EM_TRACE(1, "\nCFileLock           : ## ERROR! Failed to open/create lock directory %s (LastError = 0x%08X)",
                 directory.c_str(), lastError_);
        EM_TRACE(1, "\nCFileLock           :   %s", std::generic_category().message(error).c_str());
        return false;
    }
    if (fd_) {
        Release(std::string());
    }
    path_ = lockFile;
    return Acquire(owner, timeoutMs);
}

bool CFileLock::Acquire(const char* owner, int timeoutMs) {
    const CDeadline deadline(timeoutMs);
    const int retries = timeoutMs / kRetryIntervalMs;
    EM_TRACE(3, "\nCFileLock::Lock     : nrRetries = %d\n", retries);
    Outcome outcome = Outcome::StartOver;
    do {
        outcome = ProbeLockFile(retries);
        TraceLockable(outcome == Outcome::Done);
        if (outcome == Outcome::Done) {
            outcome = OpenAndLock(deadline);
        }
    } while (outcome == Outcome::StartOver && deadline.Wait());
    if (outcome != Outcome::Done) {
        return Refuse(outcome);
    }
    WriteHolder(owner);
    return true;
}

/// @return false
bool CFileLock::Refuse(Outcome outcome) {
    const int error = static_cast<int>(lastError_);
    if (outcome != Outcome::NotMade) {
        const bool isRead = ReadHolder();
        Remember(isRead || outcome != Outcome::NotLockable);
    }
    if (error == EWOULDBLOCK) {
        EM_TRACE(1, "\nCFileLock           : ## ERROR! %s is held by %s", path_.c_str(),
                 holder_.empty() ? "a process that left no name" : holder_.c_str());
    } else {
        EM_TRACE(1, "\nCFileLock           : ## ERROR! %s cannot be taken: %s", path_.c_str(),
                 std::generic_category().message(error).c_str());
    }
    return false;
}

CFileLock::Outcome CFileLock::ProbeLockFile(int retries) {
    const char* const name = path_.c_str();
    struct stat status {};
    if (::stat(name, &status) != 0) {
        EM_TRACE(3, "\nCFileLock::Lock     : lockfile %s does NOT exist!\n", name);
        return Outcome::Done;
    }
    EM_TRACE(3, "\nCFileLock::Lock     : lockfile %s EXISTS!\n", name);
    const CUniqueFd fd(::open(name, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!Remember(static_cast<bool>(fd))) {
        EM_TRACE(3, "\nCFileLock::Lock     : Could NOT open lockfile %s\n", name);
        // Its holder released it between stat and open.
        return lastError_ == ENOENT ? Outcome::StartOver : Outcome::NotLockable;
    }
    EM_TRACE(3, "\nCFileLock::Lock     : Successfully opened lockfile %s\n", name);
    EM_TRACE(3, "\nCFileLock::Lock     : Trying to lock lockfile %s\n", name);
    while (!Remember(::flock(fd.Get(), LOCK_EX | LOCK_NB) == 0)) {
        if (lastError_ != kSharingViolation) {
            EM_TRACE(3, "\nCFileLock::Lock     : Could NOT lock lockfile %s\n", name);
            return Outcome::NotLockable;
        }
        EM_TRACE(3, "\nCFileLock::Lock     : Error Sharing Violation while trying to lock lockfile %s\n", name);
        std::this_thread::sleep_for(std::chrono::milliseconds(kRetryIntervalMs));
        if (--retries <= 0) {
            return Outcome::NotLockable;
        }
    }
    EM_TRACE(3, "\nCFileLock::Lock     : Successfully locked lockfile %s\n", name);
    ::flock(fd.Get(), LOCK_UN);
    return Outcome::Done;
}

/// Another process may have taken the lock since the probe, and may delete the file on release while we wait for it:
/// we would then hold the lock on a file that nobody else can find. So the lock counts only when the path still leads
/// to the locked file. The wait is a poll, since a blocking flock cannot be given an end.
CFileLock::Outcome CFileLock::OpenAndLock(const CDeadline& deadline) {
    // Not truncated here: until the lock is ours the text in the file is the holder's.
    CUniqueFd fd(::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644));
    if (!Remember(static_cast<bool>(fd))) {
        return Outcome::NotMade;
    }
    while (!Remember(::flock(fd.Get(), LOCK_EX | LOCK_NB) == 0)) {
        if (lastError_ != EWOULDBLOCK && lastError_ != EINTR) {
            return Outcome::NotMade;
        }
        if (!deadline.Wait()) {
            return Outcome::StartOver;
        }
    }
    if (!IsSameFile(fd.Get(), path_)) {
        lastError_ = EWOULDBLOCK;
        return Outcome::StartOver;
    }
    fd_ = std::move(fd);
    return Outcome::Done;
}

bool CFileLock::ReadHolder() {
    const CUniqueFd fd(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    char text[kMaxHolderLength];
    const ssize_t length = fd ? ::read(fd.Get(), text, sizeof text) : -1;
    if (length == -1) {
        return false;
    }
    holder_ = ToXml(std::string_view(text, static_cast<std::size_t>(length)), XmlPlace::Verbatim);
    return true;
}

/// An empty or cut text does not make the lock less of a lock.
void CFileLock::WriteHolder(const char* owner) {
    const std::string text = (owner != nullptr ? std::string(owner) : std::string()) + "#" + std::to_string(::getpid());
    Remember(::ftruncate(fd_.Get(), 0) == 0);
    const ssize_t written = ::write(fd_.Get(), text.data(), text.size());
    Remember(written == static_cast<ssize_t>(text.size()));
    Remember(::fsync(fd_.Get()) == 0);
}

bool CFileLock::UnlockFile(const char* path) {
    if (fd_) {
        Release(path != nullptr ? LockFileName(path) : std::string());
    }
    return true;
}

/// The file goes before the lock: unlocked first, it could be locked by another process, which would then lose it. For
/// the same reason a file that is no longer ours stays.
void CFileLock::Release(const std::string& lockFile) {
    Remember(::fsync(fd_.Get()) == 0);
    if (!lockFile.empty() && IsSameFile(fd_.Get(), lockFile)) {
        Remember(::unlink(lockFile.c_str()) == 0);
    }
    Remember(::flock(fd_.Get(), LOCK_UN) == 0);
    Remember(fd_.Reset() == 0);
}
