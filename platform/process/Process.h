// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "platform/files/UniqueFd.h"

/// A command that runs beside this program, in a process group of its own.
///
/// It has /dev/null as its input, one pipe for output and errors, no other descriptor of this program, no signal
/// blocked and none ignored; environment and working directory are this program's. What it started and left in its
/// group ends with it. The object owns the command: destroying it kills the group and reaps the command, so that no
/// zombie stays.
///
/// The program must not ignore SIGCHLD nor wait for children that it does not know. An object is used on one thread at
/// a time; the static functions may be called on any thread.
class CProcess {
public:
    /// How a command ended.
    struct CEnd {
        enum class EHow {
            Exited,     ///< `value` is the exit status, 0 to 255
            Signalled,  ///< `value` is the signal's number
            Lost,       ///< somebody else reaped it; `value` is 0
            Stuck,      ///< killed, but the kernel does not let it go yet (a dead disk or NFS server); `value` is 0
        };
        EHow how = EHow::Lost;
        int value{};

        bool operator==(const CEnd&) const = default;
    };

    struct CMemory {
        std::uint64_t residentBytes{};
        std::uint64_t virtualBytes{};
    };

    /// Lets this program have as many descriptors as it may: its limit becomes the hard one. Commands get the limit of
    /// before, which they may go by: select() takes 1,024 at most. To be called before other threads begin.
    static void RaiseDescriptorLimit();

    CProcess() = default;
    CProcess(CProcess&& other) noexcept = default;
    CProcess& operator=(CProcess&& other) noexcept;
    CProcess(const CProcess&) = delete;
    CProcess& operator=(const CProcess&) = delete;
    ~CProcess();

    /// Starts a command; one that the object still runs is ended first, at once.
    /// @param command  the program, which is looked for in PATH when it has no "/", and its arguments;
    ///                 no shell reads it
    /// @param hidden  names of environment variables that it does not get
    /// @return 0, else the errno value that tells why it cannot run (ENOENT, EACCES, ENOEXEC ...), with nothing left
    ///         behind; EINVAL for an empty command and for a word that holds a zero byte
    int Start(const std::vector<std::string>& command, std::span<const std::string_view> hidden = {});

    /// True from a successful Start until Wait or End has told the end.
    bool IsRunning() const { return static_cast<bool>(pidFd_); }

    /// Of the command, which leads the group of the same number; 0 when none runs.
    pid_t GetPid() const { return pidFd_ ? pid_ : 0; }

    /// Becomes readable (POLLIN) when the command has ended: call Wait(0ms) then. -1 when none runs: take it out of the
    /// loop before the call that tells the end.
    int GetPidFd() const { return pidFd_.Get(); }

    /// The end of the pipe that output and errors come from, non-blocking; it stays open after the end, until the next
    /// Start. The end of the command, not of the file, tells that all is read: what left the group (a daemon that the
    /// command started) may hold the pipe for ever.
    int GetOutput() const { return output_.Get(); }

    /// Waits for the command's end, kills what it left in its group, and reaps it.
    /// @param limit  24 days at most; 0 or less only looks. The output is not read meanwhile: a command that writes
    ///               more than the pipe holds (64 KiB) waits for its reader.
    /// @return nothing when the time was over first or no command runs
    std::optional<CEnd> Wait(std::chrono::milliseconds limit);

    /// Sends a signal to the whole group, and to descendants that have left it (`timeout` and `setsid` do). Those whose
    /// parent has ended before are not found: they have become daemons.
    /// @return false when no command runs
    bool Signal(int signal) const;

    /// Ends the group: SIGTERM, and SIGKILL when the command still runs after `grace` (0 or less: at once). It waits
    /// `grace` and a second more at most; a loop that must not wait calls Signal and watches on.
    /// @return how the command ended; Lost when none runs. A Stuck one is given away: it is reaped by a later Start, of
    ///         any object, once the kernel lets it go
    CEnd End(std::chrono::milliseconds grace);

    /// Kills the group and gives the command away at once, without a wait: it is reaped by a later Start, of any
    /// object.
    void Abandon();

    /// The processes of a name, as the kernel keeps it: of longer names the first 15 bytes count, on both sides. A
    /// process chooses its own name: use FindByExecutable where that matters.
    /// @return ascending; empty when there is none, or /proc cannot be read
    static std::vector<pid_t> FindByName(const std::string& name);

    /// The processes that run the file of this absolute path, links resolved. A file that was replaced since (an
    /// update) is not the one that they run. Other users' processes are found by root only.
    static std::vector<pid_t> FindByExecutable(const std::string& path);

    /// @return nothing when there is no such process
    static std::optional<CMemory> ReadMemory(pid_t pid);
    static std::optional<CMemory> ReadOwnMemory();

private:
    CEnd Reap();

    pid_t pid_{};
    CUniqueFd pidFd_;
    CUniqueFd output_;
};
