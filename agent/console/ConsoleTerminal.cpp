#include "agent/console/ConsoleTerminal.h"

#include <array>
#include <cstdio>
#include <mutex>
#include <unistd.h>

#include "agent/console/ConsoleEditor.h"

namespace {

class CPlainTerminal final : public CIConsoleTerminal {
public:
    explicit CPlainTerminal(CConsoleWait& wait) : wait_(wait) {}

    std::optional<std::string> ReadLine() override {
        for (;;) {
            if (const auto end = read_.find('\n'); end != std::string::npos) {
                std::string line = read_.substr(0, end);
                read_.erase(0, end + 1);
                return line;
            }
            if (ended_ && !read_.empty()) {
                return std::exchange(read_, {});
            }
            if (ended_ || CConsoleWait::EndIsAskedFor()) {
                return std::nullopt;
            }
            if (wait_.ForInput()) {
                ReadMore();
            }
        }
    }

    void Print(std::string_view text) override {
        const std::lock_guard guard(lock_);
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fflush(stdout);
    }

private:
    void ReadMore() {
        std::array<char, 4096> buffer{};
        const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
        if (count <= 0) {
            ended_ = true;
        } else {
            read_.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }

    CConsoleWait& wait_;
    std::string read_;  // and not yet returned
    bool ended_ = false;
    std::mutex lock_;  // keeps texts whole
};

}  // namespace

bool IsAtTerminal() {
    return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1;
}

std::unique_ptr<CIConsoleTerminal> MakeConsoleTerminal(CConsoleWait& wait, ConsoleCompletion complete) {
    if (IsAtTerminal()) {
        return std::make_unique<CConsoleEditor>(wait, complete);
    }
    return std::make_unique<CPlainTerminal>(wait);
}
