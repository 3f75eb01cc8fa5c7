// SPDX-License-Identifier: Apache-2.0
#include "bench/SyncCount.h"

#include <atomic>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<int> calls{0};

}  // namespace

extern "C" int fsync(int fd) {
    ++calls;
    return static_cast<int>(::syscall(SYS_fsync, fd));
}

int SyncCalls() {
    return calls;
}
