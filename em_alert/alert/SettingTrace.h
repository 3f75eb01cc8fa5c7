// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/diagnostics/Trace.h"

/// Prints a trace whose format comes from the table of settings; the table holds the texts as they are looked for.
template <int level = 2, typename... Arguments>
void TraceSetting(const char* format, Arguments... arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    EM_TRACE(level, format, arguments...);
#pragma GCC diagnostic pop
}
