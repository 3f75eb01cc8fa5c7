#include <csignal>
#include <random>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "notification/FileLock.h"
#include "notification/NotificationConfig.h"
#include "support/TraceCapture.h"
#include "xml/TempDirectory.h"

namespace {

/// Runs `body` in a process of its own, whose exit status is 0 when it returns true.
template <class Body>
pid_t StartChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(body() ? 0 : 1);
    }
    return child;
}

bool IsChildFine(pid_t child) {
    int status = -1;
    return ::waitpid(child, &status, 0) == child && status == 0;
}

/// Adds one to the number kept in the sender's name, under the lock; a refused lock is tried again.
bool AddOne(const std::string& directory) {
    CNotificationConfig config(directory);
    CFileLock lock;
    while (!lock.Lock(config.Path().c_str(), nullptr, CNotificationConfig::kLockTimeoutMs)) {
        ::sched_yield();
    }
    std::string number = "0";
    config.Load();
    config.GetSenderDescription(number);
    return config.SetSenderDescription(std::to_string(std::stoi(number) + 1)) && config.Save();
}

}  // namespace

TEST(NotificationFile, NoChangeOfSeveralProcessesIsLost) {
    const CTempDirectory directory;
    std::vector<pid_t> children;
    for (int i = 0; i < 6; ++i) {
        children.push_back(StartChild([&] {
            int done = 0;
            for (; done < 100 && AddOne(directory / ""); ++done) {
            }
            return done == 100;
        }));
    }
    for (const pid_t child : children) {
        EXPECT_TRUE(IsChildFine(child));
    }
    CNotificationConfig config(directory / "");
    std::string number;
    EXPECT_TRUE(config.LoadExclusive() && config.GetSenderDescription(number) && number == "600") << number;
    EXPECT_EQ(directory.FileCount(), 1);  // no lock file, no temporary file
}

TEST(NotificationFile, AKilledWriterLeavesACompleteFile) {
    const CTempDirectory directory;
    CNotificationConfig config(directory / "");
    std::string lists[2];
    for (int i = 0; i < 100; ++i) {
        lists[0] += (i == 0 ? "" : ";") + std::string("anna@example.com");
        lists[1] += (i == 0 ? "" : ";") + std::string("bert@example.com");
    }
    ASSERT_TRUE(config.SetRecipients(lists[0], ";") && config.Save());
    std::mt19937 random(4711);
    std::uniform_int_distribution<unsigned int> microseconds(0, 2000);
    int killedWithLock = 0;
    for (int round = 0; round < 200; ++round) {
        const pid_t child = StartChild([&] {
            for (unsigned int i = 0;; ++i) {
                CFileLock lock;
                lock.Lock(config.Path().c_str(), nullptr, 0);
                config.SetRecipients(lists[i % 2], ";");
                config.Save();
            }
            return false;
        });
        for (int i = 0; i < 100000 && !std::filesystem::exists(config.Path() + ".lock"); ++i) {
            ::usleep(50);  // the child is still starting
        }
        ::usleep(microseconds(random));
        ::kill(child, SIGKILL);
        ASSERT_FALSE(IsChildFine(child));
        killedWithLock += std::filesystem::exists(config.Path() + ".lock") ? 1 : 0;
        std::string read;
        CNotificationConfig reader(directory / "");
        ASSERT_TRUE(reader.LoadExclusive() && reader.GetRecipients(read, ";")) << reader.ErrorText();
        ASSERT_TRUE(read == lists[0] || read == lists[1]);
    }
    EXPECT_GT(killedWithLock, 50);  // else the moments were badly chosen
    EXPECT_TRUE(config.Save());
    EXPECT_EQ(directory.FileCount(), 1);  // leftovers of the dead are gone
}

TEST(NotificationFile, AFileThatCannotBeLoadedIsNeverOverwritten) {
    const CTempDirectory directory;
    CNotificationConfig config(directory / "");
    for (const std::string text : {"", "not XML", "<Notifications><email></Notifications>"}) {
        const CTraceCapture trace(1);
        WriteFile(config.Path(), text);
        EXPECT_TRUE(!config.LoadExclusive() && config.SetSender("a@b") && !config.Save());
        EXPECT_EQ(ReadFile(config.Path()), text);
        EXPECT_TRUE(trace.Has("\nCNotificationConfig : File \"" + config.Path() + "\" not loaded: "));
        EXPECT_TRUE(trace.Has("\nCNotificationConfig : ERROR! File \"" + config.Path() + "\" could not be loaded and"));
        WriteFile(config.Path(), "<Notifications/>");  // repaired
        EXPECT_TRUE(config.Load() && config.SetSender("a@b") && config.Save());
    }
}

TEST(NotificationFile, SaveTakesModeAndOwnerOfTheOldFileAndKeepsLinks) {
    const CTempDirectory directory;
    CNotificationConfig config(directory / "new/deep");
    struct stat status {};
    ASSERT_TRUE(config.SetSender("a@b") && config.Save() && ::stat(config.Path().c_str(), &status) == 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);  // it holds passwords
    std::filesystem::rename(config.Path(), directory / "real.xml");
    std::filesystem::create_symlink(directory / "real.xml", config.Path());
    const uid_t owner = ::geteuid() == 0 ? 12 : ::geteuid();
    ASSERT_EQ(::chown((directory / "real.xml").c_str(), owner, ::getegid()), 0);
    ASSERT_EQ(::chmod((directory / "real.xml").c_str(), 0640), 0);
    ASSERT_TRUE(config.SetSender("c@d") && config.Save() && ::lstat((directory / "real.xml").c_str(), &status) == 0);
    EXPECT_TRUE((status.st_mode & 07777) == 0640U && status.st_uid == owner);
    EXPECT_NE(ReadFile(directory / "real.xml").find("c@d"), std::string::npos);
}
