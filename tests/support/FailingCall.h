// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>
#include <dlfcn.h>

/// The function of the C library that fails from now on, how, how often (negative: each time), and after how many
/// calls.
struct FailingCall {
    const char* name = "";
    int error = 0;
    int times = -1;
    int after = 0;
};
inline constinit FailingCall failing;

/// The thread sanitizer calls such functions in a thread that it does not know yet: neither they nor what they call in
/// the usual case may be instrumented, nor may they have a static variable with a guard, which is the sanitizer's.
[[gnu::no_sanitize_thread]] inline bool Fails(const char* name) {
    return failing.error != 0 && failing.times != 0 && std::strcmp(failing.name, name) == 0 && failing.after-- <= 0 &&
           failing.times-- != 0;
}

/// Takes a function over from the C library, before which a program's own goes.
/// @param specifier  noexcept where the library declares that
#define EM_CAN_FAIL(function, specifier, parameters, ...)                      \
    extern "C" [[gnu::no_sanitize_thread]] int function parameters specifier { \
        using Function = int(*) parameters;                                    \
        static constinit Function real = nullptr;                              \
        if (real == nullptr) {                                                 \
            real = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, #function));  \
        }                                                                      \
        return Fails(#function) ? failing.error : real(__VA_ARGS__);           \
    }
