// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/files/UniqueFd.h"

/// A lock between processes, for a file that several of them rewrite: the lock file "<path>.lock" beside it, locked
/// with flock, holding who has it ("#<pid>" behind an optional owner text), deleted on release. The lock file of a
/// process that died is taken over, since its flock is gone.
///
/// Take the lock in a local object, keep it over the whole load-change-save, and let it go out of scope (or call
/// `UnlockFile`). Two objects exclude each other within one process as well. One object, one thread.
class CFileLock {
public:
    static constexpr std::size_t kMaxPathLength = 259;

    CFileLock() = default;
    CFileLock(const CFileLock&) = delete;
    CFileLock& operator=(const CFileLock&) = delete;
    /// Releases a held lock and deletes its lock file.
    ~CFileLock();

    /// Takes the lock. One that this object holds already is given up as soon as the directory of the new one exists;
    /// its lock file stays, unlocked.
    /// @param path       the protected file, absolute, not in "/". Its directory is created when missing. A
    ///                   lock-file name of more than 259 characters is cut there; a path that leaves no room for any of
    ///                   ".lock" is refused
    ///                   (ENAMETOOLONG), since the lock file would then be the protected file itself.
    /// @param owner      written in front of the process id; may be null
    /// @param timeoutMs  the longest wait. A lock that another process holds fails at once, by design: what is waited
    ///                   for is the moment between finding a lock file free and having it.
    /// @return false when the lock could not be had: `LastError` and `HolderText` tell more, and a trace of level 1
    ///         tells who holds it, or else why it cannot be taken
    bool Lock(const char* path, const char* owner, int timeoutMs);

    /// Releases the lock and deletes the lock file of a protected file. Without a held lock it does nothing.
    /// @param path  as given to `Lock`; null or empty leaves the lock file where it is
    /// @return true
    bool UnlockFile(const char* path);

    /// The errno value of the last failure; EINVAL for a missing or relative path.
    unsigned int LastError() const { return lastError_; }

    /// What the lock file said when taking the lock failed: its first 255 bytes, less what is not UTF-8 or a control
    /// character. Empty when the lock file could not be read, or made.
    const std::string& HolderText() const { return holder_; }

private:
    class CDeadline;
    enum class Outcome {
        Done,
        StartOver,    // its holder released it, or another one was faster
        NotLockable,  // the file that is there cannot be opened or locked
        NotMade,      // the file cannot be opened for writing, or locked
    };

    bool Acquire(const char* owner, int timeoutMs);
    Outcome ProbeLockFile(int retries);
    Outcome OpenAndLock(const CDeadline& deadline);
    bool Refuse(Outcome outcome);
    bool ReadHolder();
    void WriteHolder(const char* owner);
    void Release(const std::string& lockFile);
    bool Remember(bool success);

    CUniqueFd fd_;  // open exactly while the lock is held
    std::string path_;
    unsigned int lastError_{};
    std::string holder_;
};
