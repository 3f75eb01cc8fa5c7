// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/diagnostics/TraceObjects.h"

/// Prints one trace text, printf style: EM_TRACE(level, format, arguments...).
///
/// Levels: 1 errors and major notifications, 2 progress and warnings, 3 and 4 detail, 5 device detail; 0 goes to the
/// system log as well. Switched off, a print costs one flag test: the arguments are not evaluated.
#define EM_TRACE(level, ...)                                    \
    do {                                                        \
        if (IsTracingEnabled()) [[unlikely]] {                  \
            traceObjects.debugClient.Print(level, __VA_ARGS__); \
        }                                                       \
    } while (false)
