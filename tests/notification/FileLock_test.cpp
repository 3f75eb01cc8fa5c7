#include "notification/FileLock.h"

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/PrivateNamespace.h"
#include "support/TraceCapture.h"
#include "xml/TempDirectory.h"

namespace {

/// Called before each flock of this program; false makes it fail with the errno value that the hook left.
std::function<bool()> flockHook;

class FileLock : public ::testing::Test {
protected:
    void TearDown() override { flockHook = nullptr; }

    const CTempDirectory directory_;
    const std::string file_ = directory_ / "deep/er/a.xml";
    const std::string lockFile_ = file_ + ".lock";
    const std::string pid_ = std::string("#").append(std::to_string(::getpid()));
    const CTraceCapture trace_;
};

}  // namespace

extern "C" int flock(int fd, int operation) noexcept {
    return flockHook && !flockHook() ? -1 : static_cast<int>(::syscall(SYS_flock, fd, operation));
}

TEST_F(FileLock, TakesALockFileOfItsOwnAndDeletesIt) {
    {
        CFileLock lock;
        ASSERT_TRUE(lock.Lock(file_.c_str(), nullptr, 5050));
        EXPECT_EQ(ReadFile(lockFile_), pid_);
    }
    EXPECT_FALSE(std::filesystem::exists(lockFile_));
    EXPECT_TRUE(std::filesystem::exists(directory_ / "deep/er"));
    EXPECT_EQ(trace_.All(), "\nCFileLock           :   apply file lock using file " + file_ +
                                "...\nCFileLock::Lock     : LockFileName.c_str() = " + lockFile_ +
                                "\n\nCFileLock::Lock     : LockFileDir.c_str() = " + (directory_ / "deep/er") +
                                "\n\nCFileLock::Lock     : nrRetries = 50\n\nCFileLock::Lock     : lockfile " +
                                lockFile_ + " does NOT exist!\n\nCFileLock::Lock     : fileIsLockable = true\n" +
                                "\nCFileLock           :   release file lock using file " + lockFile_ + "");
}

TEST_F(FileLock, AHeldLockFailsAtOnceAndNamesItsHolder) {
    std::filesystem::create_directories(directory_ / "deep/er");
    WriteFile(lockFile_, "a dead process with a long name#4711");
    CFileLock holder;
    ASSERT_TRUE(holder.Lock(file_.c_str(), "M\xC3\xBCller\xFF\x01", 0));
    CFileLock lock;
    ::alarm(30);  // far less than the time-out
    EXPECT_FALSE(lock.Lock(file_.c_str(), nullptr, 600000));
    ::alarm(0);
    EXPECT_EQ(lock.LastError(), static_cast<unsigned int>(EWOULDBLOCK));
    EXPECT_EQ(lock.HolderText(), "M\xC3\xBCller" + pid_);
    EXPECT_TRUE(trace_.Has("\nCFileLock           : ## ERROR! " + lockFile_ + " is held by M\xC3\xBCller" + pid_));
    lock.UnlockFile(file_.c_str());
    EXPECT_EQ(ReadFile(lockFile_), "M\xC3\xBCller\xFF\x01" + pid_);
    WriteFile(lockFile_ + ".new", "another holder");
    std::filesystem::rename(lockFile_ + ".new", lockFile_);
    holder.UnlockFile(file_.c_str());
    EXPECT_EQ(ReadFile(lockFile_), "another holder");  // not ours to delete
}

TEST_F(FileLock, RefusesPathsThatItCannotLockAndKeepsTheLockThatItHas) {
    WriteFile(directory_ / "file", "");
    const std::string base = directory_ / "";
    const std::string longest = base + std::string(256 - base.size(), 'a');
    const std::string tooLong = base + std::string(259 - base.size(), 'a');
    CFileLock lock;
    ASSERT_TRUE(lock.Lock(longest.c_str(), nullptr, 0));
    const struct {
        std::string path;
        unsigned int error;
        std::string directory;
        std::string reason;
    } cases[] = {
        {"relative/a.xml", EINVAL, "relative", "16)\nCFileLock           :   Invalid argument"},
        {"a.xml", EINVAL, "a.xml.lock", "16)\nCFileLock           :   Invalid argument"},
        {"/a.xml", EINVAL, "", "16)\nCFileLock           :   Invalid argument"},
        {base + "file/x/a.xml", ENOTDIR, base + "file/x", "14)\nCFileLock           :   Not a directory"},
        {tooLong, ENAMETOOLONG, base.substr(0, base.size() - 1), "24)\nCFileLock           :   File name too long"}};
    for (const auto& [path, error, directory, reason] : cases) {
        const CTraceCapture trace(1);
        EXPECT_TRUE(!lock.Lock(path.c_str(), nullptr, 0) && lock.LastError() == error) << path;
        EXPECT_EQ(trace.All(), "\nCFileLock           : ## ERROR! Failed to open/create lock directory " + directory +
                                   " (LastError = 0x000000" + reason);
    }
    EXPECT_FALSE(lock.Lock(nullptr, nullptr, 0) || lock.Lock("", nullptr, 0));
    EXPECT_EQ(lock.LastError(), static_cast<unsigned int>(EINVAL));
    EXPECT_FALSE(CFileLock().Lock(longest.c_str(), nullptr, 0));
    EXPECT_TRUE(lock.Lock(file_.c_str(), nullptr, 0) &&
                std::filesystem::exists(longest + ".lo"));  // closed, not deleted
    EXPECT_TRUE(CFileLock().Lock(longest.c_str(), nullptr, 0));
    EXPECT_FALSE(std::filesystem::exists(longest + ".lo"));
}

TEST_F(FileLock, TellsWhyALockFileCannotBeMade) {
    InPrivateNamespace([&] {
        ASSERT_EQ(::mount("none", (directory_ / "").c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
        const CTraceCapture trace(1);
        CFileLock lock;
        EXPECT_FALSE(lock.Lock((directory_ / "a").c_str(), nullptr, 0));
        EXPECT_TRUE(lock.LastError() == EROFS && lock.HolderText().empty());
        EXPECT_EQ(trace.All(), "\nCFileLock           : ## ERROR! " + (directory_ / "a") +
                                   ".lock cannot be taken: Read-only file system");
    });
}

TEST_F(FileLock, TheWaitEndsWhenAnotherOneWasFaster) {
    int taken = -1;
    flockHook = [&] {
        if (taken < 0) {
            taken = ::open(lockFile_.c_str(), O_RDWR | O_CLOEXEC);
            ::syscall(SYS_flock, taken, LOCK_EX);
            WriteFile(lockFile_, "#1");
        }
        return true;
    };
    CFileLock lock;
    EXPECT_FALSE(lock.Lock(file_.c_str(), nullptr, 50));
    EXPECT_EQ(lock.HolderText(), "#1");
    ::close(taken);
    EXPECT_TRUE(lock.Lock(file_.c_str(), nullptr, 0));
}
