// SPDX-License-Identifier: Apache-2.0
#include "agent/traces/TraceSink.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>

#include "agent/core/Files.h"
#include "agent/core/Json.h"
#include "agent/traces/TextOutput.h"

constinit CTraceSink Debug;

namespace {

__attribute__((format(printf, 1, 0))) std::string Formatted(const char* format, va_list arguments) {
    char* text = nullptr;
    const int length = ::vasprintf(&text, format, arguments);
    if (length < 0) {
        return {};
    }
    const std::unique_ptr<char, void (*)(void*)> owner(text, std::free);
    return {text, static_cast<std::size_t>(length)};
}

// Such as 2026-11-25T07:45:00.123+0530.
std::string TimeOfDay() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 40> time{};
    std::array<char, 8> zone{};
    std::strftime(time.data(), time.size(), "%FT%T", &local);
    std::strftime(zone.data(), zone.size(), "%z", &local);
    std::array<char, 8> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%03d", static_cast<int>(milliseconds % 1000));
    return std::string(time.data()) + fraction.data() + zone.data();
}

// A print begins each of its lines with a new line; what precedes the first one goes on behind the print before.
std::string WithTimes(const std::string& print) {
    const std::string time = "\n" + TimeOfDay() + "  ";
    std::string text;
    for (const char c : print) {
        text += c == '\n' ? std::string_view(time) : std::string_view(&c, 1);
    }
    return text;
}

}  // namespace

void CTraceSink::Print(const char* format, va_list arguments, const char* /*moduleName*/) {
    const std::string print = Formatted(format, arguments);
    const std::lock_guard guard(lock_);
    if (listener_ != nullptr) {
        (*listener_)(print.substr(print.starts_with('\n') ? 1 : 0));
    }
    if (shown_) {
        Write(print);
    }
}

void CTraceSink::Write(const std::string& print) {
    if (file_ == nullptr) {
        WriteLines(print);
        return;
    }
    if (reopen_.exchange(false)) {
        try {
            OpenFile();
        } catch (const CAgentError& error) {  // the old file goes on
            std::fprintf(stderr, "traces: %s\n", error.what());
        }
    }
    const std::string text = times_ ? WithTimes(print) : print;
    std::fwrite(text.data(), 1, text.size(), file_);
    std::fflush(file_);
}

// Where other text goes as well, nothing may follow a print in its line.
void CTraceSink::WriteLines(const std::string& print) {
    std::string text = (print.starts_with('\n') ? "" : "\n") + print;
    text.erase(text.size() - (text.size() > 1 && text.ends_with('\n') ? 1 : 0));
    text = (times_ ? WithTimes(text) : text).substr(1) + "\n";
    if (CITextOutput* terminal = terminal_) {
        terminal->Print(text);
    } else {
        std::fputs(text.c_str(), stderr);
    }
}

void CTraceSink::OpenFile() {
    OwnedFile file = OpenOutput(*path_, true);
    if (file_ != nullptr) {
        std::fclose(file_);
    }
    file_ = file.release();
}

void CTraceSink::UseFile(const std::string& path) {
    const std::lock_guard guard(lock_);
    path_ = std::make_unique<std::string>(path).release();
    OpenFile();
}

void CTraceSink::Listen(Listener listener) {
    auto next = listener ? std::make_unique<Listener>(std::move(listener)) : nullptr;
    const std::lock_guard guard(lock_);
    next.reset(std::exchange(listener_, next.release()));
}
