// SPDX-License-Identifier: Apache-2.0

// open, close and ioctl as the program and the libraries that it loads find them. The program exports these, and the
// dynamic linker looks there first. Whatever is not the bus-I/O node goes on to the next definition, which is a
// sanitizer's in such a build and the system's otherwise.
//
// Any thread may be here at any time, also before main and after it, so nothing here depends on a constructor.
//
// <fcntl.h> stays out: with _FORTIFY_SOURCE it defines open itself, as an inline function.
#undef _FORTIFY_SOURCE

#include <cerrno>
#include <cstdarg>
#include <dlfcn.h>
#include <linux/fcntl.h>
#include <unistd.h>

#include "agent/speaker/BusIoDriver.h"

#define EM_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using OpenFunction = int (*)(const char*, int, ...);
using CloseFunction = int (*)(int);
using IoctlFunction = int (*)(int, unsigned long, ...);

template <typename Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

int Fail(int error) {
    errno = error;
    return -1;
}

int SystemOpen(const char* path, int flags, unsigned int mode) {
    static const auto next = Next<OpenFunction>("open");
    return next != nullptr ? next(path, flags, mode) : Fail(ENOSYS);
}

int SystemClose(int fd) {
    static const auto next = Next<CloseFunction>("close");
    return next != nullptr ? next(fd) : Fail(ENOSYS);
}

bool NeedsMode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

int Open(const char* path, int flags, unsigned int mode) {
    CBusIoDriver* const driver = CBusIoDriver::Active();
    if (driver == nullptr || !CBusIoDriver::IsNode(path)) {
        return SystemOpen(path, flags, mode);
    }
    // A real descriptor keeps the number from being given to another file.
    const int fd = SystemOpen("/dev/null", O_RDWR | (flags & O_CLOEXEC), 0);
    if (fd < 0) {
        return fd;
    }
    const int error = -driver->Opened(fd, flags);
    if (error != 0) {
        SystemClose(fd);
        return Fail(error);
    }
    return fd;
}

}  // namespace

EM_EXPORT int open(const char* path, int flags, ...) {
    unsigned int mode = 0;
    if (NeedsMode(flags)) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, unsigned int);
        va_end(arguments);
    }
    return Open(path, flags, mode);
}

EM_EXPORT int open64(const char* path, int flags, ...) {
    unsigned int mode = 0;
    if (NeedsMode(flags)) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, unsigned int);
        va_end(arguments);
    }
    return Open(path, flags | O_LARGEFILE, mode);
}

// What a build with _FORTIFY_SOURCE calls when no mode is given.
EM_EXPORT int __open_2(const char* path, int flags) {
    return Open(path, flags, 0);
}

EM_EXPORT int __open64_2(const char* path, int flags) {
    return Open(path, flags | O_LARGEFILE, 0);
}

EM_EXPORT int close(int fd) {
    if (CBusIoDriver* const driver = CBusIoDriver::Active(); driver != nullptr) {
        driver->Closing(fd);
    }
    return SystemClose(fd);
}

EM_EXPORT int ioctl(int fd, unsigned long code, ...) {
    va_list arguments;
    va_start(arguments, code);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    CBusIoDriver* const driver = CBusIoDriver::Active();
    if (driver != nullptr && CBusIoDriver::Owns(fd)) {
        const int result = driver->Request(code, argument);
        return result < 0 ? Fail(-result) : result;
    }
    static const auto next = Next<IoctlFunction>("ioctl");
    return next != nullptr ? next(fd, code, argument) : Fail(ENOSYS);
}
