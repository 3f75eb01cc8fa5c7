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
constexpr unsigned long kRead = 0x800C736D;

using BusIoDriver = StandIn;

}  // namespace

TEST_F(BusIoDriver, RefusesWhatThePortsWouldNotTake) {
    const int fd = ::open(kNode, O_WRONLY);
    std::string log = "open O_WRONLY\n";
    std::ifstream cases(EM_PORT_REQUESTS);
    unsigned long code = 0;
    std::uint32_t request[3];
    for (std::string line; cases >> std::hex >> code >> request[0] >> request[1] >> request[2];) {
        std::getline(cases.ignore(), line);
        const std::string error = ::ioctl(fd, code, request) != 0 ? ::strerrorname_np(errno) : "0xB6";
        EXPECT_NE(line.find(error, line.size() - 8), std::string::npos) << line;
        log += line + '\n';
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
