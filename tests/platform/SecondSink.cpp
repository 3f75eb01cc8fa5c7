#include <string>

#include "platform/DebugSink.h"

#define EXPORTED __attribute__((visibility("default")))

EXPORTED bool isSecondSinkActive = false;
EXPORTED std::string secondSinkPrints;

/// A further object "Debug", of a library behind the program.
class CSecondSink final : public CIDebugSink {
    bool IsActive() const override { return isSecondSinkActive; }
    void Print(const char* format, va_list /*a*/, const char* /*name*/) override { secondSinkPrints += format; }
};

EXPORTED CSecondSink Debug;
