// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdarg>

/// The agent's trace sink. The agent exports one object of this kind under the unmangled symbol name "Debug"; the
/// module finds it with dlsym. The order of the operations is part of the contract with the agent.
///
/// Both operations are called on any thread of the agent or the module, several at a time.
class CIDebugSink {
public:
    /// @return false while the sink wants no output; the module then looks for another object named "Debug".
    virtual bool IsActive() const = 0;

    /// Writes one print. Texts begin with their own newline.
    /// @param format  printf format
    /// @param arguments  its arguments; the sink may consume them
    /// @param moduleName  who prints, "EM_ALERT" for this module
    virtual void Print(const char* format, va_list arguments, const char* moduleName) = 0;

protected:
    ~CIDebugSink() = default;  // the agent owns the object; nobody deletes it through this interface
};
