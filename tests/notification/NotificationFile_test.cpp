// SPDX-License-Identifier: Apache-2.0
#include "notification/Notification.h"

/// Each adds one to the number kept in the sender's name, under the lock; a refused lock is tried again.
TEST(NotificationFile, NoChangeOfSeveralProcessesIsLost) {
    const CTempDirectory directory;
    for (int child = 0; child < 6; ++child) {
        if (::fork() == 0) {
            for (int i = 0; i < 100; ++i) {
                CNotificationConfig config(directory / "");
                CFileLock lock;
                while (!lock.Lock(config.Path().c_str(), nullptr, CNotificationConfig::kLockTimeoutMs)) {
                    ::sched_yield();
                }
                std::string number = "0";
                config.Load();
                config.GetSenderDescription(number);
                config.SetSenderDescription(std::to_string(std::stoi(number) + 1));
                config.Save();
            }
            ::_exit(0);
        }
    }
    while (::wait(nullptr) > 0) {
    }
    CNotificationConfig config(directory / "");
    std::string number;
    EXPECT_TRUE(config.LoadExclusive() && config.GetSenderDescription(number) && number == "600") << number;
    EXPECT_EQ(directory.FileCount(), 1);  // no lock file, no temporary file
}

TEST(NotificationFile, SaveKeepsRightsAndLinks) {
    using namespace std::string_literals;
    constexpr char kList[] = "system.posix_acl_access";
    // Version 2; owner rw-, user 1000 rw-, group ---, mask rw-, others ---.
    const std::string list =
        "\2\0\0\0\1\0\6\0\xFF\xFF\xFF\xFF\2\0\6\0\xE8\3\0\0\4\0\0\0\xFF\xFF\xFF\xFF\x10\0\6\0\xFF\xFF\xFF\xFF \0\0\0\xFF\xFF\xFF\xFF"s;
    const CTempDirectory directory;
    const std::string real = directory / "real.xml";
    CNotificationConfig config(directory / "new/deep");
    struct stat status {};
    ASSERT_TRUE(config.Save() && ::stat(config.Path().c_str(), &status) == 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);  // it holds passwords
    EXPECT_EQ(ReadFile(config.Path()), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Notifications />\n");
    std::filesystem::rename(config.Path(), real);
    std::filesystem::create_symlink("../../link", config.Path());
    std::filesystem::create_symlink(real, directory / "link");
    const gid_t otherGroup = ::geteuid() == 0 ? 13 : ::getegid();
    // The directory gives new files a list of their own, which a file without one must not get.
    ASSERT_EQ(::setxattr((directory / "").c_str(), "system.posix_acl_default", list.data(), list.size(), 0), 0);
    const struct {
        mode_t mode;
        uid_t owner;
        gid_t group;
    } rights[] = {{02640, kOwner, ::getegid()}, {0604, ::geteuid(), otherGroup}};
    for (const auto& [mode, owner, group] : rights) {
        ASSERT_EQ(::chown(real.c_str(), owner, group), 0);
        ASSERT_TRUE(::chmod(real.c_str(), mode) == 0 && config.SetSender("c@d" + std::to_string(mode)) &&
                    config.Save() && ::lstat(real.c_str(), &status) == 0);
        EXPECT_TRUE((status.st_mode & 07777) == mode && status.st_uid == owner && status.st_gid == group);
        EXPECT_TRUE(::getxattr(real.c_str(), kList, nullptr, 0) < 0 && errno == ENODATA);
        EXPECT_NE(ReadFile(real).find("c@d" + std::to_string(mode)), std::string::npos);
    }
    std::string own = list;
    own[own.find('\xE8')] = '\xE9';
    ASSERT_EQ(::setxattr(real.c_str(), kList, own.data(), own.size(), 0), 0);
    ASSERT_EQ(::setxattr(real.c_str(), "user.empty", "", 0, 0) + ::setxattr(real.c_str(), "user.note", "mine", 4, 0),
              0);
    char value[256];
    ASSERT_TRUE(config.Save() && ::lstat(real.c_str(), &status) == 0);
    EXPECT_EQ(status.st_mode & 07777, 0660U);  // as the list has it: the group's bits are its mask
    EXPECT_EQ(std::string(value, static_cast<std::size_t>(::getxattr(real.c_str(), kList, value, sizeof value))), own);
    EXPECT_EQ(std::string(value, static_cast<std::size_t>(::getxattr(real.c_str(), "user.note", value, 256))), "mine");
    EXPECT_EQ(::getxattr(real.c_str(), "user.empty", value, 256), 0);

    std::filesystem::remove(real);
    ASSERT_TRUE(!config.Load() && config.Save());  // a link that leads nowhere
    EXPECT_TRUE(std::filesystem::is_symlink(config.Path()) && std::filesystem::is_regular_file(real));
    EXPECT_EQ(directory.FileCount(), 3);

    std::filesystem::remove(real);
    std::filesystem::create_symlink(directory / "link", real);
    EXPECT_FALSE(config.Save());  // two links that lead to each other
    EXPECT_TRUE(config.ErrorText().ends_with(std::strerror(ELOOP))) << config.ErrorText();
}

TEST(NotificationFile, SaveRemovesOnlyWhatDeadWritersLeft) {
    const CTempDirectory directory;
    CNotificationConfig config(directory / "");
    for (const char* name : {".Notifications.xml.backup", ".Notifications.xml.em_alert.backup2", "x.em_alert.abcdef",
                             ".Notifications.xml.em_alert.living", ".Notifications.xml.em_alert.dead00"}) {
        WriteFile(directory / name, "");
    }
    const CUniqueFd living(::open((directory / ".Notifications.xml.em_alert.living").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::flock(living.Get(), LOCK_EX), 0);
    EXPECT_TRUE(config.Save() && !std::filesystem::exists(directory / ".Notifications.xml.em_alert.dead00"));
    EXPECT_EQ(directory.FileCount(), 5);
}
