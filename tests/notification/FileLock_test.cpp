#include "notification/FileLock.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
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
    CTraceCapture trace_;

    /// The prints of an attempt to lock `file_`, by their short names.
    std::string Traces(const std::string& names, const std::string& retries = "6000") const {
        std::istringstream stream(names);
        std::string all;
        for (std::string name; stream >> name;) {
            for (const auto& row : DataRows(EM_TEST_DATA "/lock-traces.txt")) {
                all += row[0] == name ? row[1] : "";
            }
        }
        for (const auto& [key, value] : std::map<std::string, std::string>{
                 {"<file>", file_}, {"<directory>", directory_ / "deep/er"}, {"<pid>", pid_}, {"<retries>", retries}}) {
            all = std::regex_replace(all, std::regex(key), value);
        }
        return all;
    }
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
    EXPECT_EQ(trace_.All(), Traces("apply missing true release", "50"));
    const CTraceCapture detail(4);
    EXPECT_TRUE(CFileLock().Lock(file_.c_str(), nullptr, 0) && detail.Has("nrRetries = 0"));
    EXPECT_FALSE(detail.Has("apply file lock") || detail.Has("release file lock"));
    const CTraceCapture progress(2);
    EXPECT_TRUE(CFileLock().Lock(file_.c_str(), nullptr, 0) && progress.All().empty());
    struct stat status {};
    EXPECT_TRUE(::stat((directory_ / "deep").c_str(), &status) == 0 && (status.st_mode & 0777) == 0711);
}

TEST_F(FileLock, AHeldLockFailsAtOnceAndNamesItsHolder) {
    std::filesystem::create_directories(directory_ / "deep/er");
    WriteFile(lockFile_, "a dead process with a long name#4711");
    CFileLock holder;
    ASSERT_TRUE(holder.Lock(file_.c_str(), "M\xC3\xBCller\xFF\x01", 600000));
    EXPECT_EQ(trace_.All(), Traces("apply exists opened try locked true"));
    trace_.Clear();
    CFileLock lock;
    ::alarm(30);  // far less than the time-out
    EXPECT_FALSE(lock.Lock(file_.c_str(), nullptr, 600000));
    ::alarm(0);
    EXPECT_EQ(lock.LastError(), static_cast<unsigned int>(EWOULDBLOCK));
    EXPECT_EQ(lock.HolderText(), "M\xC3\xBCller" + pid_);
    EXPECT_EQ(trace_.All(), Traces("apply exists opened try failed false held"));
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
    const std::tuple<std::string, std::string, int> cases[] = {
        {"relative/a.xml", "relative (LastError = 0x00000016)", EINVAL},
        {"a.xml", "a.xml.lock (LastError = 0x00000016)", EINVAL},
        {"/a.xml", " (LastError = 0x00000016)", EINVAL},
        {base + "file/x/a.xml", base + "file/x (LastError = 0x00000014)", ENOTDIR},
        {tooLong, base.substr(0, base.size() - 1) + " (LastError = 0x00000024)", ENAMETOOLONG}};
    for (const auto& [path, text, error] : cases) {
        const CTraceCapture trace(1);
        EXPECT_TRUE(!lock.Lock(path.c_str(), nullptr, 0) && lock.LastError() == static_cast<unsigned int>(error))
            << path;
        EXPECT_EQ(trace.All(), "\nCFileLock           : ## ERROR! Failed to open/create lock directory " + text +
                                   "\nCFileLock           :   " + std::strerror(error));
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

TEST_F(FileLock, OnlyASharingViolationIsTriedAgain) {
    std::filesystem::create_directories(directory_ / "deep/er");
    const std::tuple<int, int, int, const char*> cases[] = {{32, 99, 99, "violation false refused"},
                                                            {32, 250, 99, "violation violation false refused"},
                                                            {32, 250, 1, "violation locked true release"},
                                                            {EWOULDBLOCK, 250, 1, "failed false held"}};
    for (const auto& [error, timeoutMs, failures, traces] : cases) {
        WriteFile(lockFile_, "M\xC3\xBCller" + pid_);
        trace_.Clear();
        int left = failures;
        flockHook = [&, value = error] {
            errno = value;
            return left-- <= 0;
        };
        const auto start = std::chrono::steady_clock::now();
        CFileLock().Lock(file_.c_str(), nullptr, timeoutMs);
        const auto elapsed = std::chrono::steady_clock::now() - start;
        EXPECT_TRUE(error != 32 || elapsed >= std::min(failures, timeoutMs / 100) * std::chrono::milliseconds(100));
        EXPECT_EQ(trace_.All(),
                  Traces(std::string("apply exists opened try ") + traces, std::to_string(timeoutMs / 100)));
    }
    WriteFile(lockFile_, std::string(300, 'x'));
    flockHook = [] { return false; };
    CFileLock lock;
    EXPECT_FALSE(lock.Lock(file_.c_str(), nullptr, 0));
    EXPECT_EQ(lock.HolderText(), std::string(255, 'x'));
    // The look at the holder fails: that is told of a lock file that was there, and hides nothing of one that was not.
    flockHook = [&] {
        std::filesystem::remove(lockFile_);
        errno = EWOULDBLOCK;
        return false;
    };
    for (const int error : {ENOENT, EWOULDBLOCK}) {
        trace_.Clear();
        EXPECT_FALSE(lock.Lock(file_.c_str(), nullptr, 0));
        EXPECT_EQ(lock.LastError(), static_cast<unsigned int>(error));
        EXPECT_TRUE(trace_.Has("## ERROR! " + lockFile_ + " is held by a process that left no name"));
    }
    EXPECT_FALSE(lock.Lock("relative", nullptr, 0));
    EXPECT_EQ(lock.HolderText(), "");
}
