#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/SmtpServer.h"

// Runs on a private machine (scripts/private-machine): the module's files have their real places.

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// The agent with its console, at a terminal 40 columns wide or at a socket.
class Session {
public:
    enum class Place { Terminal, Socket };

    Session(Place place, const std::string& module, std::vector<std::string> options = {}) {
        options.insert(options.begin(), {AGENT, "--module", module});
        std::vector<char*> arguments;
        arguments.reserve(options.size() + 1);
        for (std::string& option : options) {
            arguments.push_back(option.data());
        }
        arguments.push_back(nullptr);
        std::array<int, 2> ends{};
        const winsize size{.ws_row = 24, .ws_col = 40, .ws_xpixel = 0, .ws_ypixel = 0};
        if (place == Place::Socket) {
            EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        }
        pid_ = place == Place::Terminal ? ::forkpty(ends.data(), nullptr, nullptr, &size) : ::fork();
        if (pid_ == 0) {
            if (place == Place::Socket) {
                ::dup2(ends[1], STDIN_FILENO);
                ::dup2(ends[1], STDOUT_FILENO);
            }
            // NOLINTBEGIN(concurrency-mt-unsafe): the child has one thread
            ::setenv("TERM", "xterm", 1);
            ::setenv("HOME", "/nowhere", 1);
            ::setenv("LC_ALL", "C.UTF-8", 1);
            // NOLINTEND(concurrency-mt-unsafe)
            ::execv(AGENT, arguments.data());
            ::_exit(127);
        }
        if (place == Place::Socket) {
            ::close(ends[1]);
        }
        fd_ = ends[0];
    }

    ~Session() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        ::close(fd_);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void Type(const std::string& text) const {
        ASSERT_EQ(::write(fd_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    /// Waits until the agent has written `text`, after what was seen before.
    bool Sees(const std::string& text, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        const auto deadline = Clock::now() + limit;
        for (;;) {
            if (const auto at = output_.find(text, seen_); at != std::string::npos) {
                seen_ = at + text.size();
                return true;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd polled{.fd = fd_, .events = POLLIN, .revents = 0};
            std::array<char, 4096> buffer{};
            ssize_t count = 0;
            if (left.count() <= 0 || ::poll(&polled, 1, static_cast<int>(left.count())) <= 0 ||
                (count = ::read(fd_, buffer.data(), buffer.size())) <= 0) {
                return false;
            }
            output_.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }

    bool Answers(const std::string& line, const std::string& text) {
        Type(line + "\n");
        return Sees(text);
    }

    void Signal(int signal) const { ::kill(pid_, signal); }
    void EndInput() const { ::shutdown(fd_, SHUT_WR); }

    /// @return the exit status, -1 when a signal ended the agent
    int Wait() {
        int status = 0;
        ::waitpid(std::exchange(pid_, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string Rest() const { return output_.substr(seen_); }

private:
    pid_t pid_ = -1;
    int fd_ = -1;
    std::string output_;
    std::size_t seen_ = 0;
};

std::string Text(const fs::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Types what stands behind "> " in a file of sessions/, and waits for what stands behind "< ".
void Follow(Session& session, const std::string& name, const std::map<std::string, std::string>& names = {}) {
    std::ifstream file(fs::path(SESSIONS) / name);
    ASSERT_TRUE(file) << name;
    for (std::string line; std::getline(file, line);) {
        for (const auto& [token, value] : names) {
            if (const auto at = line.find(token); at != std::string::npos) {
                line.replace(at, token.size(), value);
            }
        }
        if (line[0] == '>') {
            session.Type(line.substr(2) + "\n");
        } else {
            ASSERT_TRUE(session.Sees(line.substr(2))) << line << "\n" << session.Rest();
        }
    }
}

TEST(Console, LetsAnOperatorSetUpMailsAndHandleAnAlert) {
    const CSmtpServer refusing({"--reply", "MAIL=550 not from you"});
    const CSmtpServer server({"--auth", "anna:geheim"});
    fs::remove_all("/etc/kestrel");
    Session session(Session::Place::Terminal, EM_LIBRARY);
    Follow(session, "set-up",
           {{"@PORT1@", std::to_string(refusing.Port())}, {"@PORT2@", std::to_string(server.Port())}});
    // A tone ends while a line is being typed that fills two rows of the screen: it is told above, the line stays.
    session.Type(std::string(50, 'x'));
    ASSERT_TRUE(session.Sees("\r\033[1A\033[J")) << session.Rest();
    EXPECT_TRUE(session.Sees("The speaker has played 1000 Hz for 1")) << session.Rest();
    EXPECT_TRUE(session.Sees("ms\r\n> xxxxxxxxxx")) << session.Rest();
    EXPECT_TRUE(session.Answers("\025ack", "The pending alerts are acknowledged: the speaker is silent."))
        << session.Rest();
    EXPECT_FALSE(session.Sees(" Hz for ", std::chrono::milliseconds(700))) << "it sounds on";
    EXPECT_TRUE(session.Answers("pending", "No alert is pending."));
    EXPECT_TRUE(session.Answers("quit", "The module is stopped and unloaded."));
    EXPECT_EQ(session.Wait(), 0);

    const auto mails = server.WaitForMails(3);
    ASSERT_EQ(mails.size(), 3U);
    EXPECT_EQ(mails[2].from, "alerts@example.net");
    EXPECT_EQ(mails[2].to, (std::vector<std::string>{"anna@example.net", "bert@example.net"}));
    EXPECT_NE(mails[2].data.find("\r\nSubject: =?utf-8?Q?=C3=84rger_mit_Fan_1?=\r\n"), std::string::npos)
        << mails[2].data;
}

TEST(Console, TellsWhatIsRight) {
    fs::remove_all("/etc/kestrel");
    const fs::path file = fs::path(::testing::TempDir()) / "console_mail";
    std::ofstream(file) << "To: anna@example.net\n\ntext\n";
    Session session(Session::Place::Socket, EM_LIBRARY);
    Follow(session, "refusals");
    EXPECT_TRUE(session.Answers("send-mail " + file.string(), "The mail has no sender")) << session.Rest();
    session.Type("pending");  // the last line has no end
    session.EndInput();
    EXPECT_TRUE(session.Sees("No alert is pending.\nThe module is stopped and unloaded.\n")) << session.Rest();
    EXPECT_EQ(session.Wait(), 0);
}

TEST(Console, EditsRecallsAndCompletes) {
    Session session(Session::Place::Terminal, FAKE_MODULE, {"--trace-file", "/dev/null"});
    ASSERT_TRUE(session.Sees("> "));
    const std::pair<const char*, const char*> kKeys[] = {
        {"pen\t", "ding "},
        {"\n", "An alert is pending."},
        {"se\t", "send-mail  set  setting\r\n> se"},
        {"t s\t\t", "sender  sender-name  servers  smtps\r\n> set s"},
        {"mt\t", "ps "},
        {"\t", "1  2\r\n> set smtps "},
        {"1 o\t", "on  off\r\n"},
        {"\025hlp\002\002e\n", "First steps"},  // control-U, and twice control-B
        {"get user\033[A", "help"},
        {"\033[A", "pending"},
        {"\n", "An alert is pending."},
        {"set password 1 x\n", "status 20"},
        {"\033[A", "pending"},
    };
    for (const auto& [keys, shown] : kKeys) {
        session.Type(keys);
        EXPECT_TRUE(session.Sees(shown)) << keys << "\n" << session.Rest();
    }
    session.Type("\025\004");  // control-D
    EXPECT_TRUE(session.Sees("The module is stopped and unloaded.")) << session.Rest();
    EXPECT_EQ(session.Wait(), 0);
}

TEST(Console, EndsInGoodOrderOnASignal) {
    const fs::path transcript = fs::path(::testing::TempDir()) / "console_transcript";
    for (const auto place : {Session::Place::Socket, Session::Place::Terminal}) {
        for (const int signal : {SIGINT, SIGTERM}) {
            Session session(place, EM_LIBRARY, {"--transcript", transcript.string()});
            ASSERT_TRUE(session.Sees("Type \"help\""));
            session.Type("help pend");
            session.Signal(signal);
            EXPECT_TRUE(session.Sees("The module is stopped and unloaded.")) << session.Rest();
            EXPECT_EQ(session.Wait(), 0);
            EXPECT_NE(Text(transcript).find(R"("step":"unmapped","result":true)"), std::string::npos);
        }
    }
}

}  // namespace
