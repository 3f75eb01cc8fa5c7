#include <cerrno>
#include <cstring>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "devices/DeviceBeeper.h"
#include "support/TraceCapture.h"

namespace {

unsigned int requests = 0;  // of one tone, counted
unsigned int failing = 0;   // bit n: the request number n fails

}  // namespace

// This program's ports: they exist, and fail when told to. <fcntl.h> and <sys/ioctl.h>, which declare these functions
// differently from build to build, stay out.
extern "C" __attribute__((visibility("default"))) int open(const char* path, int flags, ...) {
    const bool node = std::strcmp(path, "/dev/pci/smbus") == 0;
    return static_cast<int>(::syscall(SYS_open, node ? "/dev/null" : path, flags, 0600));
}

extern "C" __attribute__((visibility("default"))) int ioctl(int /*fd*/, unsigned long /*code*/, ...) {
    if ((failing >> requests++ & 1) != 0) {
        errno = EIO;
        return -1;
    }
    return 0;
}

TEST(BeeperFailures, AreTracedAndTheToneIsSwitchedOffAllTheSame) {
    const struct {
        const char* message;
        const char* outcome;
        unsigned int sent;  // requests of the tone
    } cases[] = {
        {"write TIMER1_CONTROL_PORT!", "on (1000 Hz): OK", 7},
        {"write TIMER1_DATA_PORT2 (Low byte)!", "on (1000 Hz): OK", 7},
        {"write TIMER1_DATA_PORT2 (High byte)!", "on (1000 Hz): OK", 7},
        {"read SPEAKER_CONTROL_PORT!", "on (1000 Hz): ERROR", 6},
        {"write SPEAKER_CONTROL_PORT", "on (1000 Hz): ERROR", 7},
        {"read SPEAKER_CONTROL_PORT!", "off: ERROR", 6},
        {"write SPEAKER_CONTROL_PORT", "off: ERROR", 7},
    };
    failing = 1;
    for (const auto& test : cases) {
        const CTraceCapture trace;
        requests = 0;
        EXPECT_TRUE(CDeviceBeeper::Beep(1000, 0));
        EXPECT_EQ(requests, test.sent);
        EXPECT_TRUE(trace.Has(std::string("\nCDeviceBeeper       : ERROR 0x5! FAILED to ") + test.message)) << failing;
        EXPECT_TRUE(trace.Has(std::string("\nCDeviceBeeper       : Switch beeper ") + test.outcome)) << failing;
        EXPECT_EQ(trace.Count(" ERROR 0x") + trace.Count("Switch beeper off"), 2) << failing;
        failing <<= 1;
    }
}
