// SPDX-License-Identifier: Apache-2.0
#include "notification/Notification.h"

namespace {

/// Called before each flock of this program; false makes it fail with the errno value that the hook left.
std::function<bool()> flockHook;

/// The naps of this program, which take no time: how many there were of each length, in ms. The clock shows them only.
std::map<long, int> naps;

class FileLock : public ::testing::Test {
protected:
    void SetUp() override { naps.clear(); }
    void TearDown() override { flockHook = nullptr; }

    const CTempDirectory directory_;
    const std::string file_ = directory_ / "deep/er/a.xml";
    const std::string lockFile_ = file_ + ".lock";
    const std::string pid_ = std::string("#").append(std::to_string(::getpid()));
    CTraceCapture trace_;

    /// A text with the prints of an attempt to lock `file_` in place of their short names.
    std::string Filled(std::string text, const std::string& retries = "6000") const {
        auto rows = DataRows(EM_TEST_DATA "/lock-traces.txt");
        const std::string base = file_.substr(0, file_.find("/deep"));
        rows.insert(rows.end(), {{"<base>", base}, {"<pid>", pid_}, {"<retries>", retries}});
        for (const auto& row : rows) {
            text = std::regex_replace(text, std::regex(row[0]), row[1]);
        }
        return text;
    }
};

}  // namespace

extern "C" int flock(int fd, int operation) noexcept {
    return flockHook && !flockHook() ? -1 : static_cast<int>(::syscall(SYS_flock, fd, operation));
}
extern "C" int nanosleep(const timespec* time, timespec* /*rest*/) {
    ++naps[time->tv_sec * 1000 + time->tv_nsec / 1000000];
    return 0;
}
extern "C" [[gnu::no_sanitize_thread]] int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    if (flockHook && clock == CLOCK_MONOTONIC) {
        *time = {1, 0};
        for (const auto& [milliseconds, count] : naps) {
            time->tv_sec += milliseconds * count / 1000;
            time->tv_nsec += milliseconds * count % 1000 * 1000000;
        }
    }
    return result;
}

TEST_F(FileLock, TakesALockFileOfItsOwnAndDeletesIt) {
    {
        CFileLock lock;
        errno = EDOM;  // of another call
        ASSERT_TRUE(lock.Lock(file_.c_str(), nullptr, 5050) && lock.LastError() == 0);
        EXPECT_EQ(ReadFile(lockFile_), pid_);
    }
    EXPECT_TRUE(!std::filesystem::exists(lockFile_) && std::filesystem::exists(directory_ / "deep/er"));
    EXPECT_EQ(trace_.All(), Filled("<apply><missing><true><release>", "50"));
    const CTraceCapture detail(4);
    EXPECT_TRUE(CFileLock().Lock(file_.c_str(), nullptr, 0) && detail.Has("nrRetries = 0"));
    EXPECT_FALSE(detail.Has("apply file lock") || detail.Has("release file lock"));
    const CTraceCapture progress(2);
    EXPECT_TRUE(CFileLock().Lock(file_.c_str(), nullptr, 0) && progress.All().empty());
    struct stat status {};
    EXPECT_TRUE(::stat((directory_ / "deep").c_str(), &status) == 0 && (status.st_mode & 0777) == 0711);
}

TEST_F(FileLock, IsHeldAlsoWhenItsHolderCannotBeWritten) {
    InChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit none{};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
        CFileLock lock;
        EXPECT_TRUE(lock.Lock(file_.c_str(), nullptr, 0) && lock.LastError() == EFBIG && ReadFile(lockFile_).empty());
    });
}

TEST_F(FileLock, AHeldLockFailsAtOnceAndNamesItsHolder) {
    std::filesystem::create_directories(directory_ / "deep/er");
    WriteFile(lockFile_, "a dead process with a long name#4711");
    CFileLock holder;
    ASSERT_TRUE(holder.Lock(file_.c_str(), "M\xC3\xBCller\xFF\x01", 600000));
    EXPECT_EQ(trace_.All(), Filled("<apply><exists><opened><try><locked><true>"));
    trace_.Clear();
    CFileLock lock;
    ::alarm(30);  // far less than the time-out
    EXPECT_FALSE(lock.Lock(file_.c_str(), nullptr, 600000));
    ::alarm(0);
    EXPECT_EQ(lock.LastError(), static_cast<unsigned int>(EWOULDBLOCK));
    EXPECT_EQ(lock.HolderText(), "M\xC3\xBCller" + pid_);
    EXPECT_TRUE(!lock.Lock("", nullptr, 0) && lock.HolderText().empty());
    EXPECT_EQ(trace_.All(), Filled("<apply><exists><opened><try><failed><false><held>"));
    lock.UnlockFile(file_.c_str());
    EXPECT_EQ(ReadFile(lockFile_), "M\xC3\xBCller\xFF\x01" + pid_);
    WriteFile(lockFile_ + ".new", "another holder");
    std::filesystem::rename(lockFile_ + ".new", lockFile_);
    holder.UnlockFile(file_.c_str());
    EXPECT_EQ(ReadFile(lockFile_), "another holder");  // not ours to delete
    trace_.Once("EXISTS!", [&] { std::filesystem::remove(lockFile_); });
    EXPECT_TRUE(lock.Lock(file_.c_str(), nullptr, 600000));
}

TEST_F(FileLock, RefusesPathsThatItCannotLockAndKeepsTheLockThatItHas) {
    WriteFile(directory_ / "file", "");
    const std::string longest = directory_ / std::string(256 - (directory_ / "").size(), 'a');
    CFileLock lock;
    ASSERT_TRUE(lock.Lock(longest.c_str(), nullptr, 0));
    for (const auto& row : DataRows(EM_TEST_DATA "/lock-refusals.txt")) {
        const CTraceCapture trace(1);
        EXPECT_TRUE(!lock.Lock(Filled(row[0]).c_str(), nullptr, 0) && std::to_string(lock.LastError()) == row[1]);
        EXPECT_EQ(trace.All(), Filled(row[2]));
    }
    EXPECT_FALSE(lock.Lock(nullptr, nullptr, 0) || lock.Lock("", nullptr, 0));
    EXPECT_EQ(lock.LastError(), static_cast<unsigned int>(EINVAL));
    EXPECT_FALSE(CFileLock().Lock(longest.c_str(), nullptr, 0));
    EXPECT_TRUE(lock.Lock(longest.c_str(), nullptr, 0));  // its own is given up first
    EXPECT_TRUE(lock.Lock(file_.c_str(), nullptr, 0) &&
                std::filesystem::exists(longest + ".lo"));  // closed, not deleted
    const unsigned int error = lock.LastError();
    errno = EIO;  // of another call
    EXPECT_TRUE(lock.UnlockFile(file_.c_str()) && lock.LastError() == error && error != EIO);
    EXPECT_TRUE(CFileLock().Lock(longest.c_str(), nullptr, 0));
    EXPECT_FALSE(std::filesystem::exists(longest + ".lo"));
    std::filesystem::create_symlink("file/x", directory_ / "a.lock");  // it cannot be made
    const CTraceCapture trace(1);
    EXPECT_TRUE(!lock.Lock((directory_ / "a").c_str(), nullptr, 0) && lock.LastError() == ENOTDIR);
    EXPECT_EQ(trace.All() + lock.HolderText(), Filled("<unmade>"));
}

TEST_F(FileLock, TheWaitEndsWhenAnotherOneWasFaster) {
    CUniqueFd taken;
    const auto bySomebody = [&taken](const std::string& lockFile) {
        return [&taken, lockFile] {
            if (!taken) {
                taken.Reset(::open(lockFile.c_str(), O_RDWR | O_CLOEXEC));
                ::syscall(SYS_flock, taken.Get(), LOCK_EX);
                WriteFile(lockFile, "#1");
            }
            return true;
        };
    };
    flockHook = bySomebody(lockFile_);
    CFileLock lock;
    EXPECT_FALSE(lock.Lock(file_.c_str(), nullptr, 50));
    EXPECT_EQ(lock.HolderText(), "#1");
    EXPECT_EQ(naps, (std::map<long, int>{{2, 25}}));
    flockHook = nullptr;
    taken.Reset();
    EXPECT_TRUE(lock.Lock(file_.c_str(), nullptr, 0));
    lock.UnlockFile(file_.c_str());
    for (const auto& [error, waits] : {std::pair(EINTR, 3), {EWOULDBLOCK, 3}, {EIO, 0}}) {
        flockHook = [&, error = error, left = 3]() mutable {
            errno = error;
            return left-- <= 0;
        };
        naps.clear();
        EXPECT_EQ(lock.Lock(file_.c_str(), nullptr, 50), waits != 0);
        EXPECT_EQ(naps[2], waits);
        flockHook = nullptr;
        lock.UnlockFile(file_.c_str());
        std::filesystem::remove(lockFile_);
    }
    flockHook = [&] { return std::filesystem::remove(lockFile_); };  // deleted whenever it is nearly had
    CFileLock late;
    EXPECT_TRUE(!late.Lock(file_.c_str(), nullptr, 50) && late.LastError() == EWOULDBLOCK);

    CNotificationConfig config(directory_ / "");
    WriteFile(config.Path(), "<Notifications/>");
    flockHook = bySomebody(config.Path() + ".lock");
    naps.clear();
    EXPECT_TRUE(config.LoadExclusive());  // all the same
    EXPECT_EQ(naps, (std::map<long, int>{{2, 2500}}));
}

TEST_F(FileLock, OnlyASharingViolationIsTriedAgain) {
    std::filesystem::create_directories(directory_ / "deep/er");
    for (const auto& row : DataRows(EM_TEST_DATA "/lock-failures.txt")) {
        const int timeoutMs = std::stoi(row[1]);
        const int failures = std::stoi(row[2]);
        WriteFile(lockFile_, "M\xC3\xBCller" + pid_);
        trace_.Clear();
        flockHook = [&, left = failures]() mutable {
            errno = std::stoi(row[0]);
            return left-- <= 0;
        };
        naps.clear();
        CFileLock().Lock(file_.c_str(), nullptr, timeoutMs);
        EXPECT_EQ(naps, (row[3] == "0" ? std::map<long, int>() : std::map<long, int>{{100, std::stoi(row[3])}}));
        EXPECT_EQ(trace_.All(), Filled(row[4], std::to_string(timeoutMs / 100)));
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
