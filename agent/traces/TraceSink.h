// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>

#include "platform/DebugSink.h"

class CITextOutput;

/// Writes the prints of modules to standard error, a file or a terminal, each line behind the time of day. A file takes
/// them as they are, and most have no newline at their end. Its one object is exported under the name by which modules
/// look it up. Any thread, unless stated.
class CTraceSink final : public CIDebugSink {
public:
    bool IsActive() const override { return true; }
    void Print(const char* format, va_list arguments, const char* moduleName) override
        __attribute__((format(printf, 2, 0)));

    /// Appends all further prints to a file. It stays open until the program ends.
    /// @throw CAgentError when it cannot be opened
    void UseFile(const std::string& path);

    /// Has the file opened anew with the next print, because somebody has renamed it. From a signal handler as well.
    void ReopenFile() noexcept { reopen_ = true; }

    /// Prints go to the terminal that a console works on, each on lines of its own. While a module is loaded the
    /// terminal has to live.
    /// @param terminal  null for standard error again
    void UseTerminal(CITextOutput* terminal) { terminal_ = terminal; }

    /// Lets prints through, or drops them.
    void Show(bool shown) { shown_ = shown; }

    /// Whether lines begin with the time of day and its zone.
    void ShowTimes(bool shown) { times_ = shown; }

    /// Is told each print without its leading new line, shown or not, on the thread that prints.
    using Listener = std::function<void(const std::string& print)>;
    void Listen(Listener listener);

private:
    void Write(const std::string& print);
    void WriteLines(const std::string& print);
    void OpenFile();

    std::atomic<CITextOutput*> terminal_{nullptr};
    std::atomic<bool> shown_{true};
    std::atomic<bool> times_{true};
    std::atomic<bool> reopen_{false};

    std::mutex lock_;              // guards all below, and keeps prints whole
    std::FILE* file_ = nullptr;    // null is the terminal, or standard error
    std::string* path_ = nullptr;  // with the file, for good: prints come until the process ends
    Listener* listener_ = nullptr;
};

extern "C" __attribute__((visibility("default"))) CTraceSink Debug;
