#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "StandIn.h"

namespace {

constexpr char kNode[] = "/dev/pci/smbus";

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
