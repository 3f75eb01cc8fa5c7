#pragma once

#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

inline void Shell(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

inline void WriteAll(const std::string& path, const std::string& text) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size())) << path;
    ::close(fd);
}

/// Becomes root of a new user namespace with its own network (nothing but a lo that is down) and mounts.
inline void EnterPrivateNamespace() {
    const std::string user = "0 " + std::to_string(::getuid()) + " 1";
    const std::string group = "0 " + std::to_string(::getgid()) + " 1";
    ASSERT_EQ(::unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS), 0) << "namespaces are refused on this machine";
    WriteAll("/proc/self/setgroups", "deny");
    WriteAll("/proc/self/uid_map", user);
    WriteAll("/proc/self/gid_map", group);
    ASSERT_EQ(::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
}

/// Runs `body` in a child process; a failed assertion or a crash there fails the calling test.
inline void InChild(const std::function<void()>& body) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        body();
        std::fflush(nullptr);
        ::_exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "the child failed, see above";
}

inline void InPrivateNamespace(const std::function<void()>& body) {
    InChild([&] {
        EnterPrivateNamespace();
        if (!::testing::Test::HasFatalFailure()) {
            body();
        }
    });
}
