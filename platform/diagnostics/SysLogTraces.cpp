// SPDX-License-Identifier: Apache-2.0
#include "platform/diagnostics/SysLogTraces.h"

#include <cerrno>
#include <cstdio>
#include <syslog.h>

#include "platform/diagnostics/TraceObjects.h"

SysLogTraces* SysLogTraces::getConnection() {
    CScSysLog& holder = traceObjects.sysLog;
    if (SysLogTraces* connection = holder.connection_.load(std::memory_order_acquire)) {
        return connection;
    }
    const std::lock_guard lock(holder.lock_);
    if (holder.owner_ == nullptr) {
        holder.owner_.reset(new SysLogTraces);  // private constructor: out of make_unique's reach
        holder.connection_.store(holder.owner_.get(), std::memory_order_release);
    }
    return holder.owner_.get();
}

SysLogTraces::SysLogTraces() {
    ::openlog(program_invocation_short_name, LOG_PID | LOG_CONS | LOG_NDELAY, LOG_LOCAL1);
}

SysLogTraces::~SysLogTraces() {
    ::closelog();
}

const char* SysLogTraces::getProcName() const {
    return program_invocation_short_name;
}

void SysLogTraces::logMessage(const char* text, SysLogLevel level) const volatile {
    if (text == nullptr) {
        return;
    }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    ::syslog(level, text);
#pragma GCC diagnostic pop
}

void SysLogTraces::logMessageVaList(const char* format, va_list arguments) const volatile {
    if (format == nullptr) {
        return;
    }
    while (*format == '\n') {
        ++format;
    }
    char text[1024];
    if (std::vsnprintf(text, sizeof text, format, arguments) < 0) {
        ::syslog(LOG_INFO, "ERROR: cann't format message");
        return;
    }
    ::syslog(LOG_INFO, "%s", text);
}
