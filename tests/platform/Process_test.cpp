// SPDX-License-Identifier: Apache-2.0
#include "platform/process/Process.h"

#include <csignal>
#include <poll.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>

#include "Platform.h"

namespace {

using EHow = CProcess::CEnd::EHow;

/// All that a command prints until its end.
std::string Output(CProcess& process, CProcess::CEnd& end) {
    std::string text;
    for (std::optional<CProcess::CEnd> told; !told;) {
        pollfd ready[] = {{process.GetOutput(), POLLIN, 0}, {process.GetPidFd(), POLLIN, 0}};
        EXPECT_GT(::poll(ready, 2, 20000), 0);
        told = process.Wait(0ms);
        end = told.value_or(end);
        char bytes[4096];
        for (ssize_t count = 0; (count = ::read(process.GetOutput(), bytes, sizeof bytes)) > 0;) {
            text.append(bytes, static_cast<std::size_t>(count));
        }
    }
    return text;
}

CProcess RunShell(const std::string& script) {
    CProcess process;
    EXPECT_EQ(process.Start({"sh", "-c", script}), 0);
    return process;
}

void AwaitGone(pid_t pid) {
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (::kill(pid, 0) == 0 && ReadFile("/proc/" + std::to_string(pid) + "/stat").find(") Z") == std::string::npos) {
        ASSERT_LT(std::chrono::steady_clock::now(), end) << pid;
        ::usleep(1000);
    }
}

bool isHeld = false;  // by a device that does not answer: nothing ends a process then

bool HasChild() {
    return ::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

}  // namespace

extern "C" int poll(pollfd* files, nfds_t count, int timeoutMs) {
    static const auto real = reinterpret_cast<decltype(&poll)>(::dlsym(RTLD_NEXT, "poll"));
    return isHeld ? 0 : real(files, count, timeoutMs);
}

TEST(Process, TellsOutputAndEnd) {
    const std::string big(200000, 'x');
    const struct {
        std::vector<std::string> command;
        std::string output;
        CProcess::CEnd end;
    } cases[] = {
        {{"sh", "-c", "echo out; echo err >&2; exit 3"}, "out\nerr\n", {EHow::Exited, 3}},
        {{"/bin/echo", "$HOME *", ""}, "$HOME * \n", {EHow::Exited, 0}},
        {{"sh", "-c", "kill -9 $$"}, "", {EHow::Signalled, SIGKILL}},
        {{"cat"}, "", {EHow::Exited, 0}},
        {{"head", "-c", "200000", "/dev/zero"}, std::string(200000, '\0'), {EHow::Exited, 0}},
        {{"sh", "-c", "ls /proc/$$/fd"}, "0\n1\n2\n", {EHow::Exited, 0}},
        {{"sh", "-c", "test $(cut -d' ' -f5 /proc/$$/stat) = $$; exit $?"}, "", {EHow::Exited, 0}},
        // Signals 1 to 28; the C library keeps 32 and 33 for itself.
        {{"sed", "-nE", "s/^Sig(Blk|Ign).*(.{7})$/\\1 \\2/p", "/proc/self/status"},
         "Blk 0000000\nIgn 0000000\n",
         {EHow::Exited, 0}},
    };
    ::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    ::sigfillset(&blocked);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, nullptr), 0);
    const CUniqueFd inherited(::dup(0));
    for (const auto& row : cases) {
        CProcess process;
        ASSERT_EQ(process.Start(row.command), 0);
        EXPECT_TRUE(process.IsRunning() && process.GetPid() > 0);
        CProcess::CEnd end;
        EXPECT_EQ(Output(process, end), row.output);
        EXPECT_EQ(end, row.end) << row.command.back();
        EXPECT_TRUE(!process.IsRunning() && process.GetPid() == 0 && !process.Wait(0ms) && !process.Signal(0));
        EXPECT_FALSE(HasChild());
    }
    ::pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
}

TEST(Process, SaysWhyACommandCannotBeStarted) {
    const CTempDirectory directory;
    WriteFile(directory / "text", "echo no shell reads this\n");
    ASSERT_EQ(::chmod((directory / "text").c_str(), 0755), 0);
    CProcess process;
    EXPECT_EQ(process.Start({}), EINVAL);
    EXPECT_EQ(process.Start({"echo", "a\0b"s}), EINVAL);
    EXPECT_EQ(process.Start({"no-such-program"}), ENOENT);
    EXPECT_EQ(process.Start({directory / "text"}), ENOEXEC);
    EXPECT_EQ(process.Start({directory / ""}), EACCES);
    EXPECT_TRUE(!process.IsRunning() && !HasChild());
}

TEST(Process, EndsTheWholeGroup) {
    char line[32] = "";
    const auto grandchild = [&](CProcess& process) {
        pollfd ready{process.GetOutput(), POLLIN, 0};
        EXPECT_GT(::poll(&ready, 1, 20000), 0);
        EXPECT_GT(::read(process.GetOutput(), line, sizeof line - 1), 0);
        return std::stoi(line);
    };
    CProcess obeys = RunShell("trap 'sleep 0.2; exit 7' TERM; sleep 99 & echo $!; wait");  // in its own time
    pid_t pid = grandchild(obeys);
    EXPECT_FALSE(obeys.Wait(10ms));
    EXPECT_EQ(obeys.End(20s), (CProcess::CEnd{EHow::Exited, 7}));
    AwaitGone(pid);
    CProcess parts = RunShell("setsid sh -c 'setsid sleep 99 & echo $!; wait' & wait");  // each with a group of its own
    pid = grandchild(parts);
    EXPECT_EQ(parts.End(20s), (CProcess::CEnd{EHow::Signalled, SIGTERM}));
    AwaitGone(pid);
    CProcess refuses = RunShell("trap '' TERM; sleep 99 & echo $!; wait");
    pid = grandchild(refuses);
    EXPECT_EQ(refuses.End(50ms), (CProcess::CEnd{EHow::Signalled, SIGKILL}));
    AwaitGone(pid);
    CProcess leaves = RunShell("sleep 99 & echo $!; exit 2");
    pid = grandchild(leaves);
    EXPECT_EQ(leaves.Wait(20s), (CProcess::CEnd{EHow::Exited, 2}));
    AwaitGone(pid);
    {
        CProcess dropped = RunShell("sleep 99 & echo $!; wait");
        pid = grandchild(dropped);
        CProcess moved = std::move(dropped);
        EXPECT_TRUE(moved.IsRunning() && !dropped.IsRunning());  // NOLINT(bugprone-use-after-move): it promises that
        const int output = moved.GetOutput();
        refuses = std::move(moved);
        EXPECT_EQ(refuses.GetOutput(), output);
        refuses = CProcess();
    }
    AwaitGone(pid);
    CProcess again = RunShell("sleep 99 & echo $!; wait");
    pid = grandchild(again);
    EXPECT_EQ(again.Start({"true"}), 0);
    AwaitGone(pid);
    EXPECT_EQ(again.Wait(20s), CProcess::CEnd{EHow::Exited});
    CProcess stolen = RunShell("exit 0");
    ASSERT_EQ(::waitpid(stolen.GetPid(), nullptr, 0), stolen.GetPid());
    EXPECT_EQ(stolen.Wait(20s), CProcess::CEnd{});
    EXPECT_FALSE(HasChild());
}

TEST(Process, ThatNothingEndsIsReapedLater) {
    const int descriptor = CUniqueFd(::dup(0)).Get();
    CProcess process = RunShell("sleep 99");
    const pid_t pid = process.GetPid();
    isHeld = true;
    EXPECT_EQ(process.End(0ms), (CProcess::CEnd{EHow::Stuck, 0}));
    isHeld = false;
    EXPECT_FALSE(process.IsRunning() || process.Wait(0ms));
    AwaitGone(pid);
    EXPECT_EQ(::kill(pid, 0), 0);  // nobody has waited for it
    EXPECT_EQ(process.Start({}), EINVAL);
    EXPECT_NE(::kill(pid, 0), 0);
    EXPECT_EQ(CUniqueFd(::dup(0)).Get(), descriptor);
}

TEST(Process, IsNotStartedWithoutTheDescriptorsThatItTakes) {
    InChild([] {
        ::close_range(3, ~0U, 0);
        CProcess process;
        for (rlim_t room = 0; room < 4; ++room) {  // two for the pipe, one that tells the end
            const rlimit limit{3 + room, 1024};
            ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
            EXPECT_EQ(process.Start({"sleep", "9"}), room < 3 ? EMFILE : 0);
            EXPECT_TRUE(process.IsRunning() == (room == 3) && HasChild() == (room == 3));
        }
        process = CProcess();
        EXPECT_EQ(::open("/dev/null", O_RDONLY | O_CLOEXEC), 3);
    });
}

TEST(Process, IsAwaitedWhateverSignalsCome) {
    struct sigaction previous {};
    struct sigaction noted {};
    noted.sa_handler = [](int) {};
    ASSERT_EQ(::sigaction(SIGALRM, &noted, &previous), 0);
    const itimerval often{{0, 2000}, {0, 2000}};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &often, nullptr), 0);
    CProcess process = RunShell("read line; sleep 0.05; exit 4");  // its input is empty
    EXPECT_EQ(process.Wait(20s), (CProcess::CEnd{EHow::Exited, 4}));
    process = RunShell("sleep 99");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(process.Wait(30ms));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
    const itimerval never{};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &previous, nullptr);
}

TEST(Process, FindsProcessesAndReadsTheirMemory) {
    const CTempDirectory directory;
    const std::string program = directory / "a-name-beyond-15-bytes";
    ASSERT_TRUE(std::filesystem::copy_file("/bin/sleep", program));
    CProcess process;
    ASSERT_EQ(process.Start({program, "99"}), 0);
    const std::vector<pid_t> one{process.GetPid()};
    EXPECT_EQ(CProcess::FindByName("a-name-beyond-15-bytes"), one);
    EXPECT_EQ(CProcess::FindByName("a-name-beyond-"), std::vector<pid_t>{});
    EXPECT_EQ(CProcess::FindByExecutable(program), one);
    const pid_t pid = process.GetPid();
    auto memory = CProcess::ReadMemory(pid);
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (memory && memory->residentBytes < 65536 && std::chrono::steady_clock::now() < deadline) {
        memory = CProcess::ReadMemory(pid);  // it has only begun
    }
    EXPECT_TRUE(memory && memory->residentBytes >= 65536 && memory->virtualBytes > memory->residentBytes);
    EXPECT_EQ(process.End(0ms), (CProcess::CEnd{EHow::Signalled, SIGKILL}));
    EXPECT_FALSE(CProcess::ReadMemory(pid));
    EXPECT_TRUE(CProcess::FindByExecutable(program).empty() && CProcess::FindByExecutable(program + "x").empty());

    const auto before = CProcess::ReadOwnMemory();
    const std::string held(std::size_t{64} << 20, 'x');
    const auto after = CProcess::ReadOwnMemory();
    ASSERT_TRUE(before && after);
    EXPECT_GE(after->residentBytes - before->residentBytes, held.size() - (held.size() >> 3));
    EXPECT_GE(after->virtualBytes, after->residentBytes);
}
