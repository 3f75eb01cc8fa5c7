// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Mutex.h"
#include "platform/threads/EventTable.h"

/// What the module's threads share once for a loaded library, from load to unload.
struct ModuleObjects {
    CEventTable eventTable;

    /// Held from setting LC_TIME to resetting it: the locale belongs to the whole process.
    CMutex timeLocaleLock;
};

extern ModuleObjects moduleObjects;
