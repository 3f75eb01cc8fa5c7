// SPDX-License-Identifier: Apache-2.0
// Preloaded into the service (LD_PRELOAD): clocks that a test moves, by the seconds in the file EM_CLOCKS. They are two
// numbers of 64 bits, for the clock on the wall and for the one that timers go by; with a third, nothing can be killed.
// The event loop's timer, and who waits for a condition, look every 10 ms; what else waits in the kernel is not
// shortened.

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

constexpr long kLook = 10000000;  // ns
constexpr long kSecond = 1000000000;

const volatile std::int64_t* Shifts() {
    static const volatile std::int64_t* const shifts = [] {
        const int file = ::open(std::getenv("EM_CLOCKS"), O_RDONLY | O_CLOEXEC);
        void* const mapped = ::mmap(nullptr, 3 * sizeof(std::int64_t), PROT_READ, MAP_SHARED, file, 0);
        ::close(file);
        ::unsetenv("LD_PRELOAD");  // not for plugins
        return static_cast<const volatile std::int64_t*>(mapped);
    }();
    return shifts;
}

}  // namespace

#define EM_SHOWN extern "C" __attribute__((visibility("default")))

EM_SHOWN int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const long result = ::syscall(SYS_clock_gettime, clock, time);
    if (clock == CLOCK_REALTIME || clock == CLOCK_MONOTONIC) {
        time->tv_sec += Shifts()[clock == CLOCK_REALTIME ? 0 : 1];
    }
    return static_cast<int>(result);
}

EM_SHOWN time_t time(time_t* result) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return result != nullptr ? *result = now.tv_sec : now.tv_sec;
}

EM_SHOWN int gettimeofday(timeval* result, void* /*zone*/) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *result = {.tv_sec = now.tv_sec, .tv_usec = now.tv_nsec / 1000};
    return 0;
}

EM_SHOWN int timerfd_settime(int timer, int flags, const itimerspec* wanted, itimerspec* before) noexcept {
    const bool isSet = wanted->it_value.tv_sec != 0 || wanted->it_value.tv_nsec != 0;
    const itimerspec look = {.it_interval = {.tv_sec = 0, .tv_nsec = kLook},
                             .it_value = {.tv_sec = 0, .tv_nsec = kLook}};
    return static_cast<int>(::syscall(SYS_timerfd_settime, timer, isSet ? 0 : flags, isSet ? &look : wanted, before));
}

EM_SHOWN int kill(pid_t process, int signal) noexcept {
    return Shifts()[2] != 0 ? 0 : static_cast<int>(::syscall(SYS_kill, process, signal));
}

EM_SHOWN int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                    const timespec* end) {
    static const auto next = reinterpret_cast<decltype(&pthread_cond_clockwait)>(::dlsym(RTLD_NEXT, __func__));
    timespec look{};
    ::syscall(SYS_clock_gettime, clock, &look);
    look.tv_sec += (look.tv_nsec + kLook) / kSecond;
    look.tv_nsec = (look.tv_nsec + kLook) % kSecond;
    const int result = next(condition, mutex, clock, &look);
    timespec now{};
    clock_gettime(clock, &now);
    const bool isOver = now.tv_sec > end->tv_sec || (now.tv_sec == end->tv_sec && now.tv_nsec >= end->tv_nsec);
    return result == ETIMEDOUT && !isOver ? 0 : result;  // who waits looks again
}
