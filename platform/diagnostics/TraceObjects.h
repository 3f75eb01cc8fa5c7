// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/diagnostics/DebugClient.h"
#include "platform/diagnostics/SysLogTraces.h"

/// The trace client and the system log of a loaded library. They are built before any export can be called, and
/// destroyed, in reverse order, when the library is unloaded.
struct TraceObjects {
    CScSysLog sysLog;
    CDebugClient debugClient{"EM_ALERT"};

    /// Reads the trace settings.
    TraceObjects();
};

extern TraceObjects traceObjects;

/// The flag that guards every print.
inline bool IsTracingEnabled() noexcept {
    return CDebugClient::tracingEnabled.load(std::memory_order_relaxed);
}
