#pragma once

#include <atomic>
#include <cstdio>
#include <string>

#include "platform/DebugSink.h"

class CITextOutput;

/// Writes the prints of modules to standard error or a file. Its one object is exported under the name by which modules
/// look it up.
class CTraceSink final : public CIDebugSink {
public:
    bool IsActive() const override { return true; }
    void Print(const char* format, va_list arguments, const char* moduleName) override
        __attribute__((format(printf, 2, 0)));

    /// Redirects all further prints to a file, which is then open until the program ends. Once, before a module is
    /// loaded.
    /// @throw CAgentError when it cannot be opened
    void UseFile(const std::string& path);

    /// Prints go to the terminal that a console works on, each on lines of its own. While a module is loaded the
    /// terminal has to live.
    /// @param terminal  null for standard error again
    void UseTerminal(CITextOutput* terminal) { terminal_ = terminal; }

    /// Lets prints through, or drops them. Any thread.
    void Show(bool shown) { shown_ = shown; }

private:
    std::atomic<std::FILE*> file_{nullptr};  // null is standard error
    std::atomic<CITextOutput*> terminal_{nullptr};
    std::atomic<bool> shown_{true};
};

extern "C" __attribute__((visibility("default"))) CTraceSink Debug;
