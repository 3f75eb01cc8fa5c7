// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdarg>
#include <memory>
#include <mutex>

/// Priorities of the system log, as <syslog.h> numbers them.
enum SysLogLevel : int {
    SysLogError = 3,
    SysLogWarning = 4,
    SysLogNotice = 5,
    SysLogInfo = 6,
    SysLogDebug = 7,
};

/// The one writer to the system log: facility LOG_LOCAL1, identity the process's short name. The operations are const
/// volatile because the object is reached by all threads without a lock; syslog(3) has its own.
class SysLogTraces {
public:
    /// The writer, opened on first use. Any thread.
    static SysLogTraces* getConnection();

    ~SysLogTraces();
    SysLogTraces(const SysLogTraces&) = delete;
    SysLogTraces& operator=(const SysLogTraces&) = delete;

    /// Logs a finished text. HAZARD: the text is the format of syslog(3), so a "%" in it is interpreted again; hand
    /// over texts of the program alone, never one that came from outside. A null text is ignored.
    void logMessage(const char* text, SysLogLevel level) const volatile;

    /// Formats at most 1023 characters, without the format's leading newlines, and logs them with LOG_INFO.
    void logMessageVaList(const char* format, va_list arguments) const volatile __attribute__((format(printf, 2, 0)));

    const char* getProcName() const;

private:
    SysLogTraces();
};

/// Holds the writer from its first use until the library is unloaded.
class CScSysLog {
    friend class SysLogTraces;
    std::mutex lock_;
    std::unique_ptr<SysLogTraces> owner_;
    std::atomic<SysLogTraces*> connection_{nullptr};
};
