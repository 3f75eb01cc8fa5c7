// SPDX-License-Identifier: Apache-2.0
#include "command/terminal/ConsoleTerminal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <system_error>
#include <termios.h>
#include <unistd.h>
#include <utility>

#include "agent/core/Json.h"
#include "command/terminal/ConsoleEditor.h"

namespace {

/// Standard input without echo, while it lives.
class CNoEcho {
public:
    explicit CNoEcho(std::string prompt) : prompt_(std::move(prompt)) {
        ::tcgetattr(STDIN_FILENO, &before_);
        Begin(TCSAFLUSH);
    }
    ~CNoEcho() { ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_); }
    CNoEcho(const CNoEcho&) = delete;
    CNoEcho& operator=(const CNoEcho&) = delete;
    CNoEcho(CNoEcho&&) = delete;
    CNoEcho& operator=(CNoEcho&&) = delete;

    /// Once the terminal was given back to the program: whoever has had it shows what is typed.
    void BeginAgain() const {
        std::fputs("\r", stderr);
        Begin(TCSANOW);
    }

private:
    void Begin(int when) const {
        termios silent = before_;
        silent.c_lflag = (silent.c_lflag & ~static_cast<tcflag_t>(ECHO)) | ECHONL | ICANON;
        ::tcsetattr(STDIN_FILENO, when, &silent);
        std::fputs(prompt_.c_str(), stderr);
        std::fflush(stderr);
    }

    const std::string prompt_;
    termios before_{};
};

/// Lines from standard input, as they come.
class CLineReader {
public:
    /// @param silence  for a line that nobody may see
    explicit CLineReader(CConsoleWait& wait, const CNoEcho* silence = nullptr) : wait_(wait), silence_(silence) {}

    std::optional<std::string> Read() {
        for (;;) {
            const auto end = read_.find('\n');
            if (end != std::string::npos || (ended_ && !read_.empty())) {
                return TakeLine(std::min(end, read_.size()));
            }
            if (ended_ || CConsoleWait::EndIsAskedFor() || CConsoleWait::TakeInterrupt()) {
                return std::nullopt;
            }
            const bool hasInput = wait_.ForInput();
            if (silence_ != nullptr && CConsoleWait::TakeTerminalChange()) {
                silence_->BeginAgain();
            }
            if (hasInput) {
                ReadMore();
            }
        }
    }

private:
    // A line of another system ends with "\r\n".
    std::string TakeLine(std::size_t length) {
        std::string line = read_.substr(0, length);
        read_.erase(0, length + 1);
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        return line;
    }

    void ReadMore() {
        std::array<char, 4096> buffer{};
        const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count < 0 && errno != EAGAIN && errno != EINTR) {
            throw CAgentError("cannot read standard input: " + std::generic_category().message(errno));
        }
        ended_ = count == 0;
        read_.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }

    CConsoleWait& wait_;
    const CNoEcho* const silence_;
    std::string read_;  // and not yet returned
    bool ended_ = false;
};

class CPlainTerminal final : public CIConsoleTerminal {
public:
    explicit CPlainTerminal(CConsoleWait& wait) : wait_(wait), lines_(wait) {}

    std::optional<std::string> ReadLine() override { return lines_.Read(); }

    std::optional<std::string> ReadSecret(const std::string& prompt) override {
        return ::isatty(STDIN_FILENO) == 1 ? ReadHiddenLine(wait_, prompt) : lines_.Read();
    }

    void Print(std::string_view text) override {
        ShowProgress({});
        const std::lock_guard guard(lock_);
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
    }

    void ShowProgress(std::string_view text) override {
        const std::lock_guard guard(lock_);
        if (showsProgress_ && (progress_ || !text.empty())) {
            std::fputs(((progress_ ? kNoProgress : "") + std::string(text)).c_str(), stderr);
            std::fflush(stderr);
            progress_ = !text.empty();
        }
    }

private:
    CConsoleWait& wait_;
    CLineReader lines_;
    const bool showsProgress_ = ::isatty(STDERR_FILENO) == 1;
    std::mutex lock_;  // guards all below, and keeps texts whole
    bool progress_ = false;
};

}  // namespace

bool IsAtTerminal() {
    return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1;
}

std::unique_ptr<CIConsoleTerminal> MakeEditingTerminal(CConsoleWait& wait, ConsoleCompletion complete,
                                                       const std::string& historyFile) {
    return std::make_unique<CConsoleEditor>(wait, complete, historyFile);
}

std::unique_ptr<CIConsoleTerminal> MakePlainTerminal(CConsoleWait& wait) {
    return std::make_unique<CPlainTerminal>(wait);
}

std::optional<std::string> ReadHiddenLine(CConsoleWait& wait, const std::string& prompt) {
    const CNoEcho silence(prompt);
    return CLineReader(wait, &silence).Read();
}
