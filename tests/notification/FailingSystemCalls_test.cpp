#include <cerrno>
#include <dirent.h>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>

#include <gtest/gtest.h>

#include "notification/FileLock.h"
#include "notification/NotificationConfig.h"
#include "xml/TempDirectory.h"

namespace {

int callsLeft = -1;  // calls that still succeed; negative: all
int failure = 0;     // errno of the one that fails then
std::set<std::string> failed;

bool Fails(const char* name) {
    if (callsLeft < 0 || callsLeft-- > 0) {
        return false;
    }
    failed.insert(name);
    errno = failure;
    return true;
}

}  // namespace

// The linker (--wrap, see CMakeLists.txt) leads the calls of the code under test here.
#define FAILING(type, name, whenFailed, parameters, ...)                 \
    extern "C" type __real_##name parameters;                            \
    extern "C" type __wrap_##name parameters;                            \
    type __wrap_##name parameters {                                      \
        return Fails(#name) ? (whenFailed) : __real_##name(__VA_ARGS__); \
    }

FAILING(int, open, -1, (const char* path, int flags, mode_t mode), path, flags, mode)
FAILING(int, mkostemp, -1, (char* path, int flags), path, flags)
FAILING(ssize_t, read, -1, (int fd, void* buffer, std::size_t size), fd, buffer, size)
FAILING(ssize_t, write, -1, (int fd, const void* bytes, std::size_t size), fd, bytes, size)
FAILING(int, fsync, -1, (int fd), fd)
FAILING(int, stat, -1, (const char* path, struct stat* status), path, status)
FAILING(int, fstat, -1, (int fd, struct stat* status), fd, status)
FAILING(int, fchmod, -1, (int fd, mode_t mode), fd, mode)
FAILING(int, fchown, -1, (int fd, uid_t user, gid_t group), fd, user, group)
FAILING(int, flock, -1, (int fd, int operation), fd, operation)
FAILING(int, ftruncate, -1, (int fd, off_t size), fd, size)
FAILING(int, rename, -1, (const char* from, const char* to), from, to)
FAILING(int, unlink, -1, (const char* path), path)
FAILING(char*, realpath, nullptr, (const char* path, char* resolved), path, resolved)
FAILING(DIR*, opendir, nullptr, (const char* path), path)

/// A setting is changed, as a write request does it, with each system call on the way failing in turn, for each reason.
TEST(FailingSystemCalls, LeaveTheOldFileOrTheNewOne) {
    const CTempDirectory directory;
    CNotificationConfig original(directory / "");
    ASSERT_TRUE(original.SetSender("old@x") && original.SetRecipients("anna@x;bert@x", ";") && original.Save());
    const std::string oldText = ReadFile(original.Path());
    std::string newText = oldText;
    newText.replace(newText.find("old@x"), 5, "new@x");

    const uid_t owner = ::geteuid() == 0 ? 12 : ::geteuid();

    for (const int reason : {ENOSPC, EIO, EACCES, EMFILE}) {
        failure = reason;
        for (int calls = 0;; ++calls) {
            WriteFile(original.Path(), oldText);
            WriteFile(directory / ".Notifications.xml.abcdef", "of a dead writer");
            ASSERT_EQ(::chown(original.Path().c_str(), owner, ::getegid()), 0);
            callsLeft = calls;
            bool isSaved = false;
            {
                CNotificationConfig config(directory / "");
                CFileLock lock;
                isSaved = lock.Lock(config.Path().c_str(), nullptr, 0) && config.Load() && config.SetSender("new@x") &&
                          config.Save();
            }
            const bool hasFailed = callsLeft < 0;
            callsLeft = -1;
            const std::string text = ReadFile(original.Path());
            EXPECT_TRUE(text == newText || (text == oldText && !isSaved)) << reason << ", call " << calls << ":\n"
                                                                          << text;
            if (!hasFailed) {
                EXPECT_TRUE(isSaved);
                break;
            }
        }
    }
    EXPECT_EQ(failed.size(), owner == ::geteuid() ? 14U : 15U);  // all but fchown
    CFileLock lock;
    EXPECT_TRUE(lock.Lock(original.Path().c_str(), nullptr, 0) && original.Load() && original.Save());
    lock.UnlockFile(original.Path().c_str());
    EXPECT_EQ(directory.FileCount(), 1);
}
