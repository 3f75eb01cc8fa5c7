#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
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

TEST(Console, LetsAnOperatorSetUpMailsAndHandleAnAlert) {
    const CSmtpServer refusing({"--reply", "MAIL=550 not from you"});
    const CSmtpServer server({"--auth", "anna:geheim"});
    fs::remove_all("/etc/kestrel");
    Session session(Session::Place::Terminal, EM_LIBRARY);
    std::string tones;
    for (int i = 0; i < 20; ++i) {
        tones += " 1000/100/100";
    }
    const std::pair<std::string, std::string> kFirst[] = {
        {"help", "the speaker stops"},
        {"set host 1 127.0.0.1", "host 1            127.0.0.1\r\n"},
        {"set port 1 " + std::to_string(refusing.Port()), "port 1 "},
        {"set host 2 127.0.0.1", "host 2            127.0.0.1\r\n"},
        {"set port 2 " + std::to_string(server.Port()), "port 2 "},
        {"set sender alerts@example.net", "sender            alerts@example.net\r\n"},
        {"set recipients anna@example.net bert@example.net", "recipients        anna@example.net bert@example.net\r\n"},
        {"test-mail", "The mail was not sent: no mail server is set up, or none took the mail"},
        {"set authentication 2 smtp", "authentication 2  smtp\r\n"},
        {"set user 2 anna", "user 2            anna\r\n"},
        {"set password 2 geheim", "password 2        (hidden)\r\n"},
        {"get recipients", "recipients        anna@example.net;bert@example.net\r\n"},
        {"test-mail", "The mail was sent."},
        {"test-mail update", "The mail was sent."},
        {"supported", "Alerts about updates are supported."},
        {"setting beep on", "beep              on\r\n"},
        {"setting error-tones" + tones, "error-tones      " + tones.substr(0, 20)},
        {"setting mail on", "mail              on\r\n"},
        {"setting subject Ärger mit $(ComponentName)", "subject           Ärger mit $(ComponentName)\r\n"},
        {R"(status 3 "Fan 1" "CPU 1 fan")", "is now 3 (error)."},
        {"pending", "An alert is pending."},
    };
    for (const auto& [line, answer] : kFirst) {
        ASSERT_TRUE(session.Answers(line, answer)) << line << "\n" << session.Rest();
    }
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
    const std::pair<const char*, const char*> kCases[] = {
        {"pendin", R"(There is no command "pendin"; "help" lists the commands.)"},
        {"help set", "password 1|2        stored enciphered"},
        {"status 3", R"(It goes: status 1|2|3 "NAME" "DESIGNATION")"},
        {"status 3 \"a b", "A closing quotation mark is missing."},
        {"set colour red", "there is no \"colour\" here; there are sender, sender-name, recipients"},
        {"set host mail.example.net", "host belongs to a mail server, so say which, 1 or 2: host 1"},
        {"set port 1 65536", "port is a number from 1 to 65535"},
        {"set authentication 1 pop3", "authentication is none or smtp"},
        {"set servers 2", "servers cannot be set: the module counts them."},
        {"setting error-tones 2300/150", "error-tones is a list of tones, each of three numbers up to 10000"},
        {"setting severity x", "severity is a number from 0 to 255 (the lowest status that is mailed"},
        {"setting", "\nlanguage          (not set)\n"},
        {"test-mail status", "It goes: test-mail (about a status) or: test-mail update"},
        {"send-mail /nowhere", "There is no mail in \"/nowhere\""},
        {"trace 0", "The module is loaded again, with trace level 0"},
        {"pending", "No alert is pending."},
    };
    for (const auto& [line, answer] : kCases) {
        EXPECT_TRUE(session.Answers(line, answer)) << line << "\n" << session.Rest();
    }
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
