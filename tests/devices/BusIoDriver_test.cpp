#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "StandIn.h"

extern "C" int __open_2(const char* path, int flags);
extern "C" int __open64_2(const char* path, int flags);

namespace {

constexpr char kNode[] = "/dev/pci/smbus";
constexpr unsigned long kWrite = 0x400C736E;
constexpr unsigned long kRead = 0x800C736D;

using BusIoDriver = StandIn;

}  // namespace

TEST_F(BusIoDriver, RefusesWhatThePortsWouldNotTake) {
    const int fd = ::open(kNode, O_WRONLY);
    const struct {
        unsigned long code;
        std::uint32_t request[3];
        const char* log;
    } cases[] = {
        {kWrite, {0x42, 1, 0x10}, "write 0x42 width 1 value 0x10 refused (EINVAL)"},
        {kWrite, {0x43, 1, 0x36}, "write 0x43 width 1 value 0x36 refused (EINVAL)"},
        {kWrite, {0x43, 1, 0xB6}, "write 0x43 width 1 value 0xB6"},
        {kWrite, {0x61, 2, 0x03}, "write 0x61 width 2 value 0x03 refused (EINVAL)"},
        {kWrite, {0x61, 4, 0x01000003}, "write 0x61 width 4 value 0x1000003 refused (EINVAL)"},
        {kWrite, {0x80, 1, 0}, "write 0x80 width 1 value 0x00 refused (ENXIO)"},
        {kRead, {0x42, 1, 0}, "read 0x42 width 1 value 0x00 refused (EINVAL)"},
        {0x800C736E, {0x61, 1, 0}, "request 0x800C736E refused (ENOTTY)"},
    };
    std::string log = "open O_WRONLY\n";
    for (auto test : cases) {
        const int result = ::ioctl(fd, test.code, test.request);
        log += std::string(test.log) + '\n';
        const std::string error = result != 0 ? ::strerrorname_np(errno) : "0xB6";
        EXPECT_NE(log.find(error, log.size() - 9), std::string::npos) << test.log;
    }
    EXPECT_EQ(::close(fd), 0);
    EXPECT_EQ(::close(fd), -1);
    EXPECT_EQ(PortLog(), log + "close\n");
}

TEST_F(BusIoDriver, ServesTheNodeAloneAndOnlyWhileItLives) {
    for (const auto entry : {&__open_2, &__open64_2}) {  // as builds with _FORTIFY_SOURCE call open
        const int node = entry(kNode, O_RDWR);
        const int other = entry("/dev/ptmx", O_RDWR);
        std::uint32_t request[3] = {0x61, 1, 0};
        int waiting = -1;
        EXPECT_EQ(::ioctl(node, kRead, request) + ::ioctl(other, FIONREAD, &waiting), 0);
        EXPECT_EQ(static_cast<int>(request[0]) + waiting, 0x30);
        EXPECT_EQ(::close(other) + ::close(node), 0);
    }
    driver_.reset();
    EXPECT_EQ(::open64(kNode, O_RDWR), -1);
}
