// SPDX-License-Identifier: Apache-2.0
#include "fuzz/Fuzz.h"

#include <cstdio>
#include <cstdlib>

#include "platform/DebugSink.h"

// Not in the unnamed namespace: an object of such a type is not exported.

/// Formats each print, so that a trace with a wrong argument is found, and forgets it.
class CForgetfulSink final : public CIDebugSink {
public:
    bool IsActive() const override { return true; }
    __attribute__((format(printf, 2, 0))) void Print(const char* format, va_list arguments,
                                                     const char* /*moduleName*/) override {
        char text[4096];
        std::vsnprintf(text, sizeof text, format, arguments);
    }
};

/// Found by the code under test as it finds the agent's.
__attribute__((visibility("default"))) CForgetfulSink Debug;

long CFuzzInput::Number() {
    return std::strtol(Text().c_str(), nullptr, 10);
}

void Break(const char* promise) {
    std::fprintf(stderr, "Broken promise: %s\n", promise);
    std::abort();
}

bool HasNoLoneLineFeed(std::string_view text) {
    for (std::size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1)) {
        if (at == 0 || text[at - 1] != '\r') {
            return false;
        }
    }
    return true;
}
