// SPDX-License-Identifier: Apache-2.0
#include <dirent.h>

#include "notification/Notification.h"

namespace {

int callsLeft = -1;  // calls that still succeed; negative: all
int failure = 0;     // errno of the one that fails then; 0: the process dies instead
std::set<std::string> failed;
std::string lastFailed;
std::string calls;  // each on a line of its own, with what matters of its arguments

bool Fails(const std::string& call) {
    calls += call + "\n";
    if (call == "close" || callsLeft < 0 || callsLeft-- > 0) {  // nobody asks how a close went
        return false;
    }
    if (failure == 0) {
        ::_exit(0);  // killed here
    }
    lastFailed = call.substr(0, call.find(' '));
    failed.insert(lastFailed);
    errno = failure;
    return true;
}

std::string Name(const char* path) {
    const auto name = std::filesystem::path(path).filename();
    return name.empty() ? " ." : " " + name.string();
}

std::string Opening(const char* path, int flags, mode_t mode) {
    return Name(path) + (flags & O_CLOEXEC ? " " : " inherited ") + std::to_string(flags & (O_ACCMODE | O_CREAT)) +
           (flags & O_NONBLOCK ? " nonblock" : "") + (flags & O_NOFOLLOW ? " nofollow" : "") +
           (flags & O_CREAT ? " " + std::to_string(mode) : "");
}

/// Changes a setting as a write request does.
bool ChangeSender(const CTempDirectory& directory) {
    CNotificationConfig config(directory / "");
    CFileLock lock;
    return lock.Lock(config.Path().c_str(), nullptr, 0) && config.Load() && config.SetSender("new@x") && config.Save();
}

}  // namespace

// The linker (--wrap, see CMakeLists.txt) leads the calls of the code under test here.
#define FAILING(type, name, note, whenFailed, parameters, ...)                    \
    extern "C" type __real_##name parameters;                                     \
    extern "C" type __wrap_##name parameters;                                     \
    type __wrap_##name parameters {                                               \
        return Fails(#name + (note)) ? (whenFailed) : __real_##name(__VA_ARGS__); \
    }

using std::string;
FAILING(int, open, Opening(path, flags, mode), -1, (const char* path, int flags, mode_t mode), path, flags, mode)
FAILING(ssize_t, read, string(), -1, (int fd, void* buffer, std::size_t size), fd, buffer, size)
FAILING(ssize_t, write, string(), -1, (int fd, const void* bytes, std::size_t size), fd, bytes, size)
FAILING(int, fsync, string(), -1, (int fd), fd)
FAILING(int, stat, Name(path), -1, (const char* path, struct stat* status), path, status)
FAILING(int, fstat, string(), -1, (int fd, struct stat* status), fd, status)
FAILING(int, close, string(), -1, (int fd), fd)
FAILING(int, fchmod, " " + std::to_string(mode), -1, (int fd, mode_t mode), fd, mode)
FAILING(int, fchown, string(), -1, (int fd, uid_t user, gid_t group), fd, user, group)
FAILING(int, flock, " " + std::to_string(operation), -1, (int fd, int operation), fd, operation)
FAILING(int, ftruncate, string(), -1, (int fd, off_t size), fd, size)
FAILING(int, rename, Name(to), -1, (const char* from, const char* to), from, to)
FAILING(int, unlink, Name(path), -1, (const char* path), path)
FAILING(DIR*, opendir, string(), nullptr, (const char* path), path)
FAILING(ssize_t, readlink, Name(path), -1, (const char* path, char* target, std::size_t size), path, target, size)
FAILING(ssize_t, getxattr, Name(name), -1, (const char* path, const char* name, void* to, std::size_t n), path, name,
        to, n)
FAILING(ssize_t, fgetxattr, Name(name), -1, (int fd, const char* name, void* to, std::size_t n), fd, name, to, n)
FAILING(int, fsetxattr, Name(name), -1, (int fd, const char* name, const void* v, std::size_t n, int f), fd, name, v, n,
        f)
FAILING(int, fremovexattr, Name(name), -1, (int fd, const char* name), fd, name)

/// Names of attributes, each with its final 0, that files have besides their own.
std::string signatures;

extern "C" ssize_t __real_listxattr(const char* path, char* names, std::size_t size);
extern "C" ssize_t __wrap_listxattr(const char* path, char* names, std::size_t size);
ssize_t __wrap_listxattr(const char* path, char* names, std::size_t size) {
    const ssize_t own = Fails("listxattr" + Name(path)) ? -1 : __real_listxattr(path, names, size);
    signatures.copy(names + std::max<ssize_t>(own, 0), signatures.size());
    return own < 0 ? own : own + static_cast<ssize_t>(signatures.size());
}

/// What another process that clears leftovers does to new temporary files: true holds their lock before they go.
std::vector<bool> robberies;

extern "C" int __real_mkostemp(char* path, int flags);
extern "C" int __wrap_mkostemp(char* path, int flags);
int __wrap_mkostemp(char* path, int flags) {
    const string note = Name(path) + (flags == O_CLOEXEC ? "" : " inherited");
    const int fd = Fails("mkostemp" + note) ? -1 : __real_mkostemp(path, flags);
    if (fd >= 0 && !robberies.empty()) {
        static CUniqueFd other;
        other.Reset(robberies.back() ? __real_open(path, O_RDONLY | O_CLOEXEC, 0) : -1);
        __real_flock(other.Get(), LOCK_EX);
        __real_unlink(path);
        robberies.pop_back();
    }
    return fd;
}

TEST(FailingSystemCalls, AWriterWhoseNewFileIsRemovedStartsOver) {
    const CTempDirectory directory;
    CNotificationConfig config(directory / "");
    robberies = {false, true, false};
    EXPECT_TRUE(config.SetSender("a@b") && config.Save() && robberies.empty());
    EXPECT_TRUE(config.Load() && directory.FileCount() == 1);
    robberies.assign(1000, false);
    EXPECT_TRUE(!config.Save() && robberies.size() == 900);
    robberies.clear();
}

TEST(FailingSystemCalls, TheCallsOfAChangeAreInOrder) {
    const CTempDirectory directory;
    CNotificationConfig config(directory / "");
    ASSERT_TRUE(config.SetSender("old@x") && config.Save());
    WriteFile(config.Path() + ".lock", "#1");
    WriteFile(directory / ".Notifications.xml.em_alert.abcdef", "of a dead writer");
    ASSERT_EQ(::chmod(config.Path().c_str(), 02640), 0);
    calls.clear();
    signatures = std::string("security.evm\0security.ima\0", 26);  // which are not for another file
    EXPECT_TRUE(ChangeSender(directory));
    signatures.clear();
    EXPECT_EQ(calls, ReadFile(EM_TEST_DATA "/calls-of-a-change.txt"));
}

/// A setting is changed, as a write request does it, with each system call on the way failing in turn, for each reason,
/// or the process being killed there.
TEST(FailingSystemCalls, LeaveTheOldFileOrTheNewOne) {
    const CTempDirectory directory;
    CNotificationConfig original(directory / "");
    ASSERT_TRUE(original.SetSender("old@x") && original.SetRecipients("anna@x;bert@x", ";") && original.Save());
    const std::string oldText = ReadFile(original.Path());
    const std::string newText = std::regex_replace(oldText, std::regex("old@x"), "new@x");

    for (const int reason : {0, ENOSPC, EIO, EACCES, EMFILE, EINTR, ENODATA, EPERM}) {
        failure = reason;
        bool hasFailed = true;
        for (int working = 0; hasFailed; ++working) {
            WriteFile(original.Path(), oldText);
            WriteFile(directory / ".Notifications.xml.em_alert.abcdef", "of a dead writer");
            ASSERT_EQ(::setxattr(original.Path().c_str(), "user.note", "x", 1, 0), 0);
            ASSERT_EQ(::chown(original.Path().c_str(), kOwner, ::getegid()), 0);
            callsLeft = working;
            int status = 0;
            if (reason == 0 && ::fork() == 0) {
                ::_exit(ChangeSender(directory) && callsLeft >= 0 ? 1 : 2);
            }
            const bool isSaved =
                reason == 0 ? ::wait(&status) < 0 || WEXITSTATUS(status) == 1 : ChangeSender(directory);
            hasFailed = reason == 0 ? status == 0 : callsLeft < 0;
            callsLeft = -1;
            const std::string text = ReadFile(original.Path());
            EXPECT_TRUE((text == newText && (isSaved || hasFailed)) || (text == oldText && !isSaved && hasFailed))
                << reason << ", call " << working << ":\n"
                << text;
            EXPECT_TRUE(reason != EINTR || (lastFailed != "read" && lastFailed != "write") || isSaved) << lastFailed;
            EXPECT_TRUE(reason != ENODATA || lastFailed != "getxattr" || isSaved);  // the old file has just lost it
            EXPECT_TRUE(!isSaved || !hasFailed || reason == ENODATA || lastFailed != "fremovexattr") << reason;
        }
    }
    EXPECT_EQ(failed.size(), kOwner == ::geteuid() ? 19U : 20U);  // all but fchown
    CFileLock lock;
    EXPECT_TRUE(lock.Lock(original.Path().c_str(), nullptr, 0) && original.Load() && original.Save());
    lock.UnlockFile(original.Path().c_str());
    EXPECT_EQ(directory.FileCount(), 1);
}
