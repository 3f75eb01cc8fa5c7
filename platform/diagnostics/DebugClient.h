// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdarg>

#include "platform/DebugSink.h"
#include "platform/diagnostics/DebugTraceConfig.h"

/// The module's way to the agent's trace sink: filters prints by level and hands the rest on. All operations may be
/// called on any thread.
class CDebugClient : public CDebugTraceConfig {
public:
    explicit CDebugClient(const char* moduleName) : CDebugTraceConfig(moduleName) {}

    /// Prints when `level` is not above the current level; level 0 goes to the system log as well. Re-reads the trace
    /// settings first when that is due. Use EM_TRACE, which tests the tracing-enabled flag before.
    void Print(unsigned int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

    /// Prints without a look at level, settings or system log.
    void PrintAlways(unsigned int level, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void PrintAlways(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// The master client is the agent's own, which has no module name; a module's client never is.
    bool IsMaster() const { return *ModuleName() == '\0'; }

private:
    void PrintToSink(const char* format, va_list arguments);
    CIDebugSink* FindSink();

    std::atomic<CIDebugSink*> sink_{nullptr};
};
