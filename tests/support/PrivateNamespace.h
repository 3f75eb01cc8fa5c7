// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <fstream>
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
    ASSERT_TRUE(std::ofstream(path, std::ios::binary) << text << std::flush) << path;
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

/// Makes the calling process root on mounts, and on what else `namespaces` names, of its own. Root needs no user
/// namespace for that, which the kernel refuses to a process with threads (such as that of a sanitizer).
/// @return false when namespaces are refused
inline bool EnterPrivateNamespace(int namespaces) {
    const std::string user = std::to_string(::getuid());
    const std::string group = std::to_string(::getgid());
    const bool isRoot = ::geteuid() == 0;
    if (::unshare(namespaces | CLONE_NEWNS | (isRoot ? 0 : CLONE_NEWUSER)) != 0) {
        return false;
    }
    if (!isRoot) {
        WriteAll("/proc/self/setgroups", "deny");
        WriteAll("/proc/self/uid_map", "0 " + user + " 1");
        WriteAll("/proc/self/gid_map", "0 " + group + " 1");
    }
    return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Runs `body` in a child with its own network (nothing but a lo that is down) and mounts.
inline void InPrivateNamespace(const std::function<void()>& body) {
    InChild([&] {
        ASSERT_TRUE(EnterPrivateNamespace(CLONE_NEWNET)) << "namespaces are refused here";
        body();
    });
}

/// In a private namespace: a resolver that knows what is in `hosts` and asks nobody.
inline void ResolveFrom(const std::string& hosts) {
    const std::pair<const char*, std::string> files[] = {
        {"/etc/hosts", hosts}, {"/etc/nsswitch.conf", "hosts: files\n"}, {"/etc/resolv.conf", ""}};
    const std::string copy = "/tmp/overlay" + std::to_string(::getpid());
    for (const auto& [path, text] : files) {
        WriteAll(copy, text);
        ASSERT_EQ(::mount(copy.c_str(), path, nullptr, MS_BIND, nullptr), 0) << path;
        ::unlink(copy.c_str());
    }
}
