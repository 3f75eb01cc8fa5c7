// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <exception>
#include <pthread.h>

/// First statement of each catch (...). The C library ends a thread that is cancelled, or calls pthread_exit, by
/// unwinding its stack with something that looks like an exception; a handler that keeps it ends the process.
inline void LetCancellationPass() {
    if (std::current_exception() == nullptr) {  // nothing that C++ threw
        throw;
    }
}

/// Puts the cancellation of the calling thread off for the length of a scope. For destructors, which unwinding must not
/// leave, and for calls of the host's code, which may hold locks of its own.
class CCancellationPause {
public:
    CCancellationPause() noexcept { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_); }
    ~CCancellationPause() { ::pthread_setcancelstate(previous_, nullptr); }
    CCancellationPause(const CCancellationPause&) = delete;
    CCancellationPause& operator=(const CCancellationPause&) = delete;

private:
    int previous_ = PTHREAD_CANCEL_ENABLE;
};
