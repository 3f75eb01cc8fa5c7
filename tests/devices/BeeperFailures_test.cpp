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
    const struct {
        unsigned int failing;
        const char* messages;  // after "FAILED to "
        const char* on;
        const char* off;
        unsigned int sent;  // requests of the tone
    } cases[] = {
        {1, "write TIMER1_CONTROL_PORT!", "OK", "OK", 7},
        {2, "write TIMER1_DATA_PORT2 (Low byte)!", "OK", "OK", 7},
        {4, "write TIMER1_DATA_PORT2 (High byte)!", "OK", "OK", 7},
        {8, "read SPEAKER_CONTROL_PORT!", "ERROR", "OK", 6},
        {16, "write SPEAKER_CONTROL_PORT", "ERROR", "OK", 7},
        {32, "read SPEAKER_CONTROL_PORT!", "OK", "ERROR", 6},
        {64, "write SPEAKER_CONTROL_PORT", "OK", "ERROR", 7},
    };
    for (const auto& test : cases) {
        for (const unsigned int level : {1U, 4U}) {
            const CTraceCapture trace(level);
            requests = slept = 0;
            failing = test.failing;
            EXPECT_TRUE(CDeviceBeeper::Beep(1000, 7));
            EXPECT_EQ(requests, test.sent);
            EXPECT_EQ(slept, 7000U);
            const std::string error = std::string("\nCDeviceBeeper       : ERROR 0x5! FAILED to ") + test.messages;
            EXPECT_TRUE(level == 1 ? trace.All() == error : trace.Has(error)) << trace.All();
            for (const std::string& end : {std::string("on (1000 Hz): ") + test.on, std::string("off: ") + test.off}) {
                EXPECT_EQ(trace.Has("\nCDeviceBeeper       : Switch beeper " + end), level == 4) << end;
            }
        }
    }
}
