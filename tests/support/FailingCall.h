#pragma once

#include <cstring>
#include <dlfcn.h>

/// The function of the C library that fails from now on, how, and how often (negative: each time).
struct FailingCall {
    const char* name = "";
    int error = 0;
    int times = -1;
};
inline constinit FailingCall failing;

inline bool Fails(const char* name) {
    return std::strcmp(failing.name, name) == 0 && failing.times != 0 && failing.times-- != 0;
}

/// Takes a function over from the C library, before which a program's own goes.
/// @param specifier  noexcept where the library declares that
#define EM_CAN_FAIL(function, specifier, parameters, ...)                                            \
    extern "C" int function parameters specifier {                                                   \
        static const auto real = reinterpret_cast<int(*) parameters>(::dlsym(RTLD_NEXT, #function)); \
        return Fails(#function) ? failing.error : real(__VA_ARGS__);                                 \
    }
