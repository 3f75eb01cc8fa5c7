// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the tests of the platform share.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>

#include "platform/diagnostics/Trace.h"
#include "platform/files/UniqueFd.h"
#include "support/Cases.h"
#include "support/FailingCall.h"
#include "support/PrivateNamespace.h"
#include "support/TraceCapture.h"

using namespace std::chrono_literals;
using namespace std::string_literals;

/// This program's own: no process that it starts is to inherit a file.
extern "C" [[gnu::used]] inline int open(const char* path, int flags, ...) {
    EXPECT_NE(flags & O_CLOEXEC, 0) << path;
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, 0644));
}
