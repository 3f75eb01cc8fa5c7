// SPDX-License-Identifier: Apache-2.0
#include "platform/diagnostics/TraceObjects.h"

TraceObjects traceObjects;

TraceObjects::TraceObjects() {
    try {
        debugClient.Initialise(CDebugTraceConfig::kDirectory);
    } catch (...) {
        // A host must be able to load the library whatever its trace configuration holds: tracing stays off.
    }
}
