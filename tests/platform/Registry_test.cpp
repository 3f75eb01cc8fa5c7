// SPDX-License-Identifier: Apache-2.0
#include "platform/ini/Registry.h"

#include <sys/wait.h>
#include <unistd.h>

#include "Platform.h"

namespace {

int callsLeft = -1;  // calls that still succeed; negative: all
int failure = 0;     // errno of the one that fails then; 0: the process is killed instead
std::string struck;  // its name

bool IsStruck(const char* name) {
    if (callsLeft < 0 || callsLeft-- > 0) {
        return false;
    }
    struck = name;
    if (failure == 0) {
        ::raise(SIGKILL);
    }
    errno = failure;
    return true;
}

void Save(const std::string& directory, const std::string& value) {
    CRegistry registry(directory);
    registry.Set("k", value);
    ASSERT_EQ(registry.Save(), 0);
}

std::string Loaded(const std::string& directory) {
    CRegistry registry(directory);
    registry.Load();
    return registry.Get("k").value_or("none");
}

}  // namespace

#define STRIKING(name, parameters, ...)                           \
    extern "C" int __real_##name parameters;                      \
    extern "C" int __wrap_##name parameters;                      \
    int __wrap_##name parameters {                                \
        errno = EDOM; /* tells nothing unless the call fails */   \
        return IsStruck(#name) ? -1 : __real_##name(__VA_ARGS__); \
    }
STRIKING(fsync, (int fd), fd)
STRIKING(fstat, (int fd, struct stat* status), fd, status)
STRIKING(rename, (const char* from, const char* to), from, to)
STRIKING(link, (const char* from, const char* to), from, to)
STRIKING(unlink, (const char* path), path)
extern "C" int __wrap_open(const char* path, int flags, mode_t mode);
int __wrap_open(const char* path, int flags, mode_t mode) {
    EXPECT_NE(flags & O_CLOEXEC, 0) << path;
    return IsStruck("open") ? -1 : static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}
extern "C" ssize_t __real_write(int fd, const void* bytes, std::size_t size);
extern "C" ssize_t __wrap_write(int fd, const void* bytes, std::size_t size);
ssize_t __wrap_write(int fd, const void* bytes,
                     std::size_t size) {  // in small parts, so that a kill leaves some of them
    return IsStruck("write") ? -1 : __real_write(fd, bytes, std::min<std::size_t>(size, callsLeft < 0 ? size : 9));
}
extern "C" ssize_t __real_read(int fd, void* buffer, std::size_t size);
extern "C" ssize_t __wrap_read(int fd, void* buffer, std::size_t size);
ssize_t __wrap_read(int fd, void* buffer, std::size_t size) {
    return IsStruck("read") ? -1 : __real_read(fd, buffer, size);
}

TEST(Registry, KeepsATreeOfAnyBytes) {
    ::close(STDIN_FILENO);  // 0 is a file's descriptor like any other
    const CTempDirectory directory;
    CRegistry registry(directory / "");
    EXPECT_TRUE(registry.Load().problem.empty() && registry.Children("").empty());
    const std::string any = "=#\\n\r\n\0\xff end 0"s;
    for (const std::string& key : {"alerts/pending/fan1"s, "alerts/pending/fan 2"s, "alerts-x"s, "alerts"s, any}) {
        EXPECT_TRUE(registry.Set(key, any + key));
    }
    for (const std::string& key : {""s, "/a"s, "a/"s, "a//b"s, std::string(1025, 'k')}) {
        EXPECT_FALSE(registry.Set(key, "v")) << key;
    }
    EXPECT_TRUE(registry.Set("alerts", "") && registry.Set(std::string(1024, 'k'), "v") &&
                registry.Remove("kk") == false);
    ASSERT_EQ(registry.Save(), 0);
    EXPECT_EQ(std::filesystem::status(directory / "registry").permissions(), std::filesystem::perms(0600));

    CRegistry copy(directory / ".");  // without a slash at its end
    const auto loaded = copy.Load();
    EXPECT_TRUE(loaded.source == CRegistry::ESource::Current && loaded.problem.empty()) << loaded.problem;
    EXPECT_TRUE(copy.Get(any) == any + any && copy.Get("alerts") == "" && !copy.Get("alerts/pending"));
    EXPECT_EQ(copy.Children(""), (std::vector<std::string>{any, "alerts", "alerts-x", std::string(1024, 'k')}));
    EXPECT_EQ(copy.Children("alerts/pending"), (std::vector<std::string>{"fan 2", "fan1"}));
    WriteFile(directory / "registry.default", "# factory\n\nalerts/pending=none\nalerts/beep=true\nnew=5");
    EXPECT_TRUE(copy.Load().problem.empty() && copy.Get("alerts/pending") == "none");
    EXPECT_TRUE(copy.Remove("alerts") && !copy.Remove("alerts") && copy.Get("alerts-x") == any + "alerts-x");
    EXPECT_EQ(copy.Children("alerts"), (std::vector<std::string>{"beep", "pending"}));
    EXPECT_TRUE(copy.GetNumber("new", 1) == 5 && copy.Set("new", "6") && copy.GetNumber("new", 1) == 6);
}

TEST(Registry, ReadsRubbishAsTheFallback) {
    CRegistry registry("/nowhere");
    for (const auto& row : DataRows(EM_TEST_DATA "/registry.numbers")) {
        registry.Set("k", row[0]);
        EXPECT_EQ(std::to_string(registry.GetNumber("k", 7)), row[1]) << row[0];
    }
    EXPECT_TRUE(registry.SetNumber("k", -5) && registry.GetNumber("k", 0) == -5);
    for (const char* const text : {"1", "True", "", "falsey"}) {
        registry.Set("k", text);
        EXPECT_TRUE(registry.GetBool("k", true) && !registry.GetBool("k", false)) << text;
    }
    EXPECT_TRUE(registry.SetBool("k", true) && registry.GetBool("k", false));
    EXPECT_TRUE(registry.SetBool("k", false) && !registry.GetBool("k", true));
    EXPECT_EQ(registry.Save(), ENOENT);
    registry.Set("k", std::string(16 << 20, 'x'));
    EXPECT_EQ(registry.Save(), EFBIG);
}

TEST(Registry, FallsBackFromADamagedFileAndKeepsIt) {
    const CTempDirectory directory;
    const std::string path = directory / "registry";
    Save(directory / "", "1");
    Save(directory / "", "2");
    const std::string whole = ReadFile(path);
    std::string flipped = whole;
    flipped[2] = '9';
    const std::string misfit = "its last line does not fit the lines before";
    for (const auto& [damaged, fault] :
         std::vector<std::pair<std::string, std::string>>{{"", misfit},
                                                          {whole.substr(0, whole.size() - 1), misfit},
                                                          {flipped, misfit},
                                                          {whole + whole, misfit},
                                                          {"k=2\n", misfit},
                                                          {std::string((16 << 20) + 1, '#'), "File too large"}}) {
        WriteFile(path, damaged);
        const std::string unusable = path + " cannot be used (" + fault + "). ";
        const CTraceCapture trace;
        CRegistry registry(directory / "");
        const auto loaded = registry.Load();
        EXPECT_TRUE(loaded.source == CRegistry::ESource::Old && registry.Get("k") == "1") << damaged.substr(0, 99);
        EXPECT_EQ(loaded.problem, unusable + path + ".old is used instead.");
        EXPECT_EQ(trace.All(), "CRegistry::Load: " + loaded.problem + "\n");
        WriteFile(path + ".new", "k=5");
        EXPECT_EQ(registry.Load().problem,
                  unusable + path + ".new cannot be used (" + misfit + "). " + path + ".old is used instead.");
        WriteFile(path + ".new", whole);
        EXPECT_EQ(registry.Load().problem, unusable + path + ".new is used instead.");
        EXPECT_EQ(registry.Get("k"), "2");
        registry.Set("k", "3");
        EXPECT_EQ(registry.Save(), 0);
        EXPECT_TRUE(ReadFile(path + ".damaged") == damaged && Loaded(directory / "") == "3");
        std::filesystem::remove(path);
        EXPECT_EQ(registry.Load().problem, path + " is missing. " + path + ".old is used instead.");
        EXPECT_EQ(registry.Get("k"), "2");
        registry.Set("k", "1");
        EXPECT_TRUE(registry.Save() == 0 && registry.Save() == 0);
    }
    CRegistry registry(directory / "");
    for (const auto& row : DataRows(EM_TEST_DATA "/registry.faults")) {
        WriteFile(path + ".default", row[0]);
        EXPECT_EQ(registry.Load().problem, path + ".default cannot be used (" + row[1] + ").");
        EXPECT_TRUE(registry.Get("k") == "1" && !registry.Get("a"));
    }
    WriteFile(path + ".default", "");
    std::filesystem::rename(path, path + ".new");
    std::filesystem::remove(path + ".old");
    std::filesystem::resize_file(path + ".new", 5);  // the first save was cut off
    const auto cutOff = registry.Load();
    EXPECT_TRUE(cutOff.source == CRegistry::ESource::Nothing && cutOff.problem.empty() && !registry.Get("k"));
    WriteFile(path, "k=5");
    std::filesystem::remove(path + ".new");
    EXPECT_EQ(registry.Load().problem, path + " cannot be used (" + misfit + "). Only the defaults hold.");
}

/// A save with each system call failing in turn, for each reason, or the process being killed there.
TEST(Registry, AStrokeAtAnyMomentLeavesTheOldStateOrTheNewOne) {
    const CTempDirectory directory;
    const std::string path = directory / "registry";
    for (const auto& row : DataRows(EM_TEST_DATA "/registry.calls")) {
        const std::string& start = row[0];
        for (const int reason : {0, ENOSPC, EIO, EMFILE, EINTR, EPERM}) {
            failure = reason;
            bool isStruck = true;
            std::string order;
            for (int calls = 0; isStruck; ++calls) {
                for (const char* const suffix : {"", ".new", ".old", ".damaged"}) {
                    std::filesystem::remove(path + suffix);
                }
                if (start != "nothing") {
                    Save(directory / "", "before");
                }
                if (start == "new" || start == "old") {
                    std::filesystem::rename(path, path + "." + start);
                    WriteFile(path, "damaged");
                } else if (start == "whole") {
                    WriteFile(path + ".new", "cut off");
                }
                const std::string old = start == "nothing" ? "none" : "before";
                CRegistry registry(directory / "");
                registry.Load();
                registry.Set("k", "after");
                int status = 0;
                int error = 0;
                if (reason == 0) {
                    const pid_t child = ::fork();
                    if (child == 0) {
                        callsLeft = calls;
                        ::_exit(registry.Save());
                    }
                    ASSERT_EQ(::waitpid(child, &status, 0), child);
                    isStruck = WIFSIGNALED(status);
                } else {
                    const CTraceCapture trace(1);
                    callsLeft = calls;
                    error = registry.Save();
                    EXPECT_EQ(trace.Has("cannot be saved: " + std::generic_category().message(error)), error != 0);
                    isStruck = callsLeft < 0;
                    callsLeft = -1;
                    order += isStruck ? struck + " " : "";
                }
                const std::string now = Loaded(directory / "");
                EXPECT_TRUE(now == "after" || (now == old && isStruck && (reason == 0 || error != 0)))
                    << start << ", reason " << reason << ", call " << calls << ": " << now;
                EXPECT_TRUE(reason != EINTR || (struck != "read" && struck != "write") || now == "after") << struck;
            }
            EXPECT_EQ(Loaded(directory / ""), "after");
            EXPECT_TRUE(reason == 0 || reason == EINTR || order == row[1]) << order;
        }
    }
}
