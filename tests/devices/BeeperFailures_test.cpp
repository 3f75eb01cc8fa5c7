#include <cerrno>
#include <cstring>
#include <fstream>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "devices/DeviceBeeper.h"
#include "support/TraceCapture.h"

namespace {

unsigned int requests = 0;  // of one tone, counted
unsigned int failing = 0;   // bit n: the request number n fails
unsigned int slept = 0;     // us

}  // namespace

// This program's ports: they exist, and fail when told to. <fcntl.h> and <sys/ioctl.h>, which declare these functions
// differently from build to build, stay out.
#define OWN extern "C" __attribute__((visibility("default")))

OWN int open(const char* path, int flags, ...) {
    const bool node = std::strcmp(path, "/dev/pci/smbus") == 0;
    return static_cast<int>(::syscall(SYS_open, node ? "/dev/null" : path, flags, 0600));
}
OWN int ioctl(int /*fd*/, unsigned long /*code*/, ...) {
    if ((failing >> requests++ & 1) != 0) {
        errno = EIO;
        return -1;
    }
    return 0;
}
OWN int usleep(unsigned int microseconds) {
    slept += microseconds;
    return 0;
}

TEST(BeeperFailures, AreTracedAndTheToneIsSwitchedOffAllTheSame) {
    std::ifstream cases(EM_DEVICES "/failures.cases");
    unsigned int bit = 0, sent = 0;
    std::string on, off;
    for (std::string message; cases >> bit >> sent >> on >> off && std::getline(cases, message);) {
        for (const unsigned int level : {1U, 4U}) {
            const CTraceCapture trace(level);
            requests = slept = 0;
            failing = 1U << bit;
            EXPECT_TRUE(CDeviceBeeper::Beep(1000, 7));
            EXPECT_EQ(requests, sent);
            EXPECT_EQ(slept, 7000U);
            const std::string error = std::string("\nCDeviceBeeper       : ERROR 0x5! FAILED to") + message;
            EXPECT_TRUE(level == 1 ? trace.All() == error : trace.Has(error)) << trace.All();
            for (const std::string& end : {"on (1000 Hz): " + on, "off: " + off}) {
                EXPECT_EQ(trace.Has("\nCDeviceBeeper       : Switch beeper " + end), level == 4) << end;
            }
        }
    }
    EXPECT_EQ(bit, 6U);
}
