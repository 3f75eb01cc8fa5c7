// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <ctime>
#include <string>

#include "platform/Mutex.h"
#include "platform/diagnostics/DebugTraceConfigFile.h"

/// The trace settings of the module: read when the library is loaded and, with dynamic update on, while it runs.
///
/// Precedence: the environment variables `LUME_LOG_DEBUG_LEVEL` and `LUME_LOG_DYNAMIC_UPDATE` (decimal; rubbish reads
/// as 0), then the files of the trace directory, then 0.
class CDebugTraceConfig {
public:
    /// The flag that every print tests first; true when the level found at load was not 0. It is static and never
    /// destroyed, so that a thread which outlives the module's objects still finds it (and finds it false).
    static std::atomic<bool> tracingEnabled;

    /// Where the module looks for its trace settings.
    static constexpr const char* kDirectory = "/etc/kestrel/HostwardenSuite/TraceConfig";

    /// What a file holds that sets no level, or no interval, at the load; later on it is a number like any other.
    static constexpr unsigned int kNotSet = 0xFFFFFFFF;

    /// Whether the directory can be read but holds no ".ini" file, which leaves tracing off.
    static bool IsOffBy(const char* directory);

    explicit CDebugTraceConfig(const char* moduleName) : moduleName_(moduleName) {}
    CDebugTraceConfig(const CDebugTraceConfig&) = delete;
    CDebugTraceConfig& operator=(const CDebugTraceConfig&) = delete;

    /// Reads the settings once, before any thread of the module exists.
    /// @param directory  the trace configuration directory. One that can be read but holds no ".ini" file leaves
    ///                   tracing off, and the environment is then not consulted.
    void Initialise(const char* directory);

    /// Sets the threshold and with it the tracing-enabled flag. Any thread.
    void SetDebugLevel(unsigned int level);

    unsigned int DebugLevel() const { return currentLevel_.load(std::memory_order_relaxed); }
    unsigned int TraceFlags() const { return traceFlags_.load(std::memory_order_relaxed); }
    unsigned int MemoryTraces() const { return memoryTraces_.load(std::memory_order_relaxed); }
    const char* ModuleName() const { return moduleName_; }

protected:
    ~CDebugTraceConfig() { tracingEnabled = false; }

    /// Looks at the files again when the dynamic-update interval has passed (or the clock went back). Any thread; a
    /// thread that meets another one here goes on without waiting.
    void RereadWhenDue();

private:
    void Reread() EM_REQUIRES(rereadLock_);
    /// @return false, with `level` unchanged, when the section sets none
    bool LoadModuleSection(const CDebugTraceConfigFile& section, unsigned int& level);

    const char* const moduleName_;
    std::atomic<unsigned int> currentLevel_{};
    std::atomic<unsigned int> traceFlags_{};
    std::atomic<unsigned int> memoryTraces_{};
    std::atomic<unsigned int> updateInterval_{};  // seconds; 0 = never
    std::atomic<std::time_t> lastCheck_{};

    CMutex rereadLock_;
    std::string directory_;
    std::string moduleFile_;  // the file that supplied the module's section; empty when none did
    CDebugTraceConfigFile globalSection_ EM_GUARDED_BY(rereadLock_);
    CDebugTraceConfigFile moduleSection_ EM_GUARDED_BY(rereadLock_);
};
