// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/diagnostics/TraceObjects.h"

/// In the place of the product's header: no print, and no test whether to print. The arguments are still checked.
#define EM_TRACE(level, ...)                                    \
    do {                                                        \
        if (false) {                                            \
            traceObjects.debugClient.Print(level, __VA_ARGS__); \
        }                                                       \
    } while (false)
