#pragma once

#include "platform/Trace.h"

/// Prints a trace whose format comes from the table of settings.
template <typename... Arguments>
void TraceSetting(const char* format, Arguments... arguments) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    EM_TRACE(2, format, arguments...);
#pragma GCC diagnostic pop
}
