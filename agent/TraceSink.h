#pragma once

#include <atomic>
#include <cstdio>
#include <string>

#include "platform/DebugSink.h"

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

private:
    std::atomic<std::FILE*> file_{nullptr};  // null is standard error
};

extern "C" __attribute__((visibility("default"))) CTraceSink Debug;
