#pragma once

#include "platform/DebugClient.h"
#include "platform/EventTable.h"
#include "platform/Mutex.h"
#include "platform/SysLogTraces.h"

/// What exists once for a loaded library, from load to unload. The objects are built before any export can be called
/// and destroyed, in reverse order, when the library is unloaded.
struct ModuleObjects {
    CScSysLog sysLog;
    CDebugClient debugClient{"EM_ALERT"};
    CEventTable eventTable;

    /// Held from setting LC_TIME to resetting it: the locale belongs to the whole process.
    CMutex timeLocaleLock;

    ModuleObjects();
};

extern ModuleObjects moduleObjects;

/// The flag that guards every print.
inline bool IsTracingEnabled() noexcept {
    return CDebugClient::tracingEnabled.load(std::memory_order_relaxed);
}
