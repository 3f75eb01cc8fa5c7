// SPDX-License-Identifier: Apache-2.0
#include "platform/process/Process.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/Cancellation.h"
#include "platform/Mutex.h"
#include "platform/files/DirectoryEntries.h"
#include "platform/files/RegularFile.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kKillTime = 1s;  // what a killed process takes at most, unless a device holds it
constexpr std::size_t kMaxNameSize = 15;
constexpr std::size_t kMaxProcFileSize = 4096;

std::optional<rlimit> commandDescriptors;  // nothing: this program's limit

/// What the child does between its birth and the program.
class CSpawnPlan {
public:
    CSpawnPlan() {
        ::posix_spawnattr_init(&attributes_);
        ::posix_spawn_file_actions_init(&actions_);
    }
    CSpawnPlan(const CSpawnPlan&) = delete;
    CSpawnPlan& operator=(const CSpawnPlan&) = delete;
    ~CSpawnPlan() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }

    /// @param output  may be any number: a program that lacks the first three descriptors gets them for its pipe
    int Make(int output) {
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        const int errors[] = {
            ::posix_spawnattr_setflags(&attributes_,
                                       POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF),
            ::posix_spawnattr_setpgroup(&attributes_, 0),
            ::posix_spawnattr_setsigmask(&attributes_, &none),
            ::posix_spawnattr_setsigdefault(&attributes_, &all),
            ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO),
            ::posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO),
            ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
            ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1),
        };
        return std::ranges::max(errors);  // any of them, if there is one
    }

    int Spawn(pid_t& pid, const std::vector<std::string>& command, std::span<const std::string_view> hidden) const {
        std::vector<char*> words;
        std::ranges::transform(command, std::back_inserter(words), [](const std::string& word) {
            return const_cast<char*>(word.c_str());  // the C library promises not to write
        });
        words.push_back(nullptr);
        std::vector<char*> environment = Environment(hidden);
        return ::posix_spawnp(&pid, words.front(), &actions_, &attributes_, words.data(), environment.data());
    }

private:
    static std::vector<char*> Environment(std::span<const std::string_view> hidden) {
        std::vector<char*> entries;
        for (char* const* entry = environ; *entry != nullptr; ++entry) {
            const std::string_view text = *entry;
            if (std::ranges::find(hidden, text.substr(0, text.find('='))) == hidden.end()) {
                entries.push_back(*entry);
            }
        }
        entries.push_back(nullptr);
        return entries;
    }

    posix_spawnattr_t attributes_{};
    posix_spawn_file_actions_t actions_{};
};

bool CanRun(const std::vector<std::string>& command) {
    return !command.empty() &&
           std::ranges::none_of(command, [](const auto& word) { return word.find('\0') != std::string::npos; });
}

bool AwaitReadable(int fd, std::chrono::milliseconds limit) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::clamp(limit, 0ms, std::chrono::milliseconds(INT_MAX));
    for (;;) {
        const auto left = std::max(0ms, std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()));
        pollfd ready{.fd = fd, .events = POLLIN, .revents = {}};
        const int count = ::poll(&ready, 1, static_cast<int>(left.count()));
        if (count >= 0 || errno != EINTR) {
            return count > 0;
        }
    }
}

/// @return false when somebody else has reaped the process
bool WaitFor(int pidFd, siginfo_t& info, int options) {
    info = {};
    return TEMP_FAILURE_RETRY(::waitid(P_PIDFD, static_cast<id_t>(pidFd), &info, WEXITED | options)) == 0;
}

/// Commands that did not go when they were killed, until they can be reaped.
class CStrays {
public:
    void Add(CUniqueFd pidFd) {
        const CMutexLock lock(lock_);
        pidFds_.push_back(std::move(pidFd));
    }
    void Reap() {
        const CMutexLock lock(lock_);
        std::erase_if(pidFds_, [](const CUniqueFd& pidFd) {
            siginfo_t info{};
            return !WaitFor(pidFd.Get(), info, WNOHANG) || info.si_pid != 0;
        });
    }
    static CStrays& Instance() {
        static CStrays strays;
        return strays;
    }

private:
    CMutex lock_;
    std::vector<CUniqueFd> pidFds_ EM_GUARDED_BY(lock_);
};

void ForEachProcess(const std::function<void(pid_t pid, const std::string& directory)>& look) {
    ForEachEntry("/proc", [&](const std::string& name) {
        pid_t pid{};
        const auto parsed = std::from_chars(name.data(), name.data() + name.size(), pid);
        if (parsed.ec == std::errc() && parsed.ptr == name.data() + name.size()) {
            look(pid, "/proc/" + name);
        }
    });
}

std::vector<pid_t> FindProcesses(const std::function<bool(const std::string& directory)>& isWanted) {
    std::vector<pid_t> found;
    ForEachProcess([&](pid_t pid, const std::string& directory) {
        if (isWanted(directory)) {
            found.push_back(pid);
        }
    });
    std::ranges::sort(found);
    return found;
}

/// Itself, its children and theirs, as far as no end of one between them has given them to another parent.
std::vector<pid_t> FindTree(pid_t root) {
    std::multimap<pid_t, pid_t> children;
    ForEachProcess([&children](pid_t pid, const std::string& directory) {
        std::string text;  // "4711 (name, which may hold blanks) S 4710 ..."
        if (ReadRegularFile(directory + "/stat", kMaxProcFileSize, text) == 0) {
            pid_t parent{};
            char close{};
            char state{};
            text.erase(0, text.rfind(')'));
            if (std::istringstream(text) >> close >> state >> parent) {
                children.emplace(parent, pid);
            }
        }
    });
    std::vector<pid_t> found{root};
    for (std::size_t i = 0; i < found.size(); ++i) {
        const auto [begin, end] = children.equal_range(found[i]);
        std::transform(begin, end, std::back_inserter(found), [](const auto& entry) { return entry.second; });
    }
    return found;
}

std::optional<CProcess::CMemory> ReadMemoryOf(const std::string& process) {
    std::string text;
    if (ReadRegularFile("/proc/" + process + "/statm", kMaxProcFileSize, text) != 0) {
        return std::nullopt;
    }
    const auto pageBytes = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    std::uint64_t virtualPages{};
    std::uint64_t residentPages{};
    if (!(std::istringstream(text) >> virtualPages >> residentPages)) {
        return std::nullopt;
    }
    return CProcess::CMemory{residentPages * pageBytes, virtualPages * pageBytes};
}

}  // namespace

CProcess& CProcess::operator=(CProcess&& other) noexcept {
    if (this != &other) {
        End(0ms);
        pid_ = other.pid_;
        pidFd_ = std::move(other.pidFd_);
        output_ = std::move(other.output_);
    }
    return *this;
}

CProcess::~CProcess() {
    End(0ms);
}

void CProcess::RaiseDescriptorLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        commandDescriptors = limit;
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

int CProcess::Start(const std::vector<std::string>& command, std::span<const std::string_view> hidden) {
    const CCancellationPause pause;
    End(0ms);
    output_.Reset();
    CStrays::Instance().Reap();
    if (!CanRun(command)) {
        return EINVAL;
    }
    int ends[2]{};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return errno;
    }
    CUniqueFd reading(ends[0]);
    const CUniqueFd writing(ends[1]);
    if (::fcntl(reading.Get(), F_SETFL, O_NONBLOCK) != 0) {  // the command's own end must block
        return errno;
    }
    CSpawnPlan plan;
    int error = plan.Make(writing.Get());
    if (error == 0) {
        error = plan.Spawn(pid_, command, hidden);
    }
    if (error != 0) {
        return error;
    }
    pidFd_.Reset(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));  // glibc 2.36 declares it for C only
    if (!pidFd_) {
        error = errno;
        ::kill(-pid_, SIGKILL);
        TEMP_FAILURE_RETRY(::waitpid(pid_, nullptr, 0));
        return error;
    }
    if (commandDescriptors) {
        ::prlimit(pid_, RLIMIT_NOFILE, &*commandDescriptors, nullptr);  // its program is at its very beginning
    }
    output_ = std::move(reading);
    return 0;
}

std::optional<CProcess::CEnd> CProcess::Wait(std::chrono::milliseconds limit) {
    if (!pidFd_ || !AwaitReadable(pidFd_.Get(), limit)) {
        return std::nullopt;
    }
    return Reap();
}

bool CProcess::Signal(int signal) const {
    if (!pidFd_) {
        return false;
    }
    const std::vector<pid_t> tree = FindTree(pid_);  // before their parents end
    const bool isSent = ::kill(-pid_, signal) == 0;
    for (const pid_t pid : tree) {
        if (::getpgid(pid) != pid_) {
            ::kill(pid, signal);
        }
    }
    return isSent;
}

CProcess::CEnd CProcess::End(std::chrono::milliseconds grace) {
    const CCancellationPause pause;
    if (!pidFd_) {
        return {};
    }
    if (grace > 0ms && Signal(SIGTERM)) {
        if (const auto end = Wait(grace)) {
            return *end;
        }
    }
    Signal(SIGKILL);
    if (const auto end = Wait(kKillTime)) {
        return *end;
    }
    CStrays::Instance().Add(std::move(pidFd_));
    return {CEnd::EHow::Stuck, 0};
}

void CProcess::Abandon() {
    const CCancellationPause pause;
    if (pidFd_) {
        Signal(SIGKILL);
        CStrays::Instance().Add(std::move(pidFd_));
    }
}

/// Only a command that has ended is reaped here. Until it is, no other group can get its number.
CProcess::CEnd CProcess::Reap() {
    siginfo_t info{};
    CEnd end;
    if (WaitFor(pidFd_.Get(), info, WNOWAIT)) {
        ::kill(-pid_, SIGKILL);
        WaitFor(pidFd_.Get(), info, 0);
        end = {info.si_code == CLD_EXITED ? CEnd::EHow::Exited : CEnd::EHow::Signalled, info.si_status};
    }
    pidFd_.Reset();
    return end;
}

std::vector<pid_t> CProcess::FindByName(const std::string& name) {
    return FindProcesses([wanted = name.substr(0, kMaxNameSize) + "\n"](const std::string& directory) {
        std::string text;
        return ReadRegularFile(directory + "/comm", kMaxProcFileSize, text) == 0 && text == wanted;
    });
}

std::vector<pid_t> CProcess::FindByExecutable(const std::string& path) {
    return FindProcesses([&path](const std::string& directory) {
        std::error_code ignored;  // of a process that has ended, or is another user's
        return std::filesystem::equivalent(directory + "/exe", path, ignored);
    });
}

std::optional<CProcess::CMemory> CProcess::ReadMemory(pid_t pid) {
    return ReadMemoryOf(std::to_string(pid));
}

std::optional<CProcess::CMemory> CProcess::ReadOwnMemory() {
    return ReadMemoryOf("self");
}
