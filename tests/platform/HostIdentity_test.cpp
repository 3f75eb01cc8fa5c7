// SPDX-License-Identifier: Apache-2.0
#include <arpa/inet.h>
#include <linux/netlink.h>
#include <netdb.h>

#include "Platform.h"
#include "platform/host/HostIpAddress.h"
#include "platform/host/NetworkInterface.h"
#include "platform/host/OsInfo.h"

namespace {

/// A machine with lo, two interfaces of names as long as the kernel allows, one of them without IPv4 address and one
/// without any, and two interfaces with several addresses, one of them with more than the kernel tells at once: the
/// best IPv6 address is the last of them. What is not Ethernet has addresses that must not be taken; the tunnel is left
/// out where its device is kept for the real root.
void MakeNetwork() {
    Shell("set -e; cd " EM_TEST_DATA
          "; ip -batch network.links; { cat network.addresses; for i in $(seq 1000); do echo addr add 10.7.$((i / "
          "250)).$((i % 250 + 1))/16 dev eth2; echo addr add fd07::$i/64 dev eth2 nodad preferred_lft 0; done; } | ip "
          "-batch -; [ ! -w /dev/net/tun ] || ip -batch network.tunnel");
}

/// Whether a look-up that runs out of memory at its n-th allocation gives nothing and throws nothing, for every n.
void ExpectNothingThrown(const std::function<bool()>& lookUp) {
    int allocations = -1;
    do {
        failing = {"operator new", ENOMEM, -1, ++allocations};
    } while (!lookUp() && allocations < 1000);
    failing = {};
    EXPECT_TRUE(allocations > 0 && allocations < 1000) << allocations;
}

std::optional<std::pair<std::size_t, std::uint16_t>> garbled;  // of the next answer: an offset, and what stands there

bool isOldKernel = false;  // which answers with the addresses of all interfaces

constexpr auto v4 = CHostIPAddress::ip_v4;
constexpr auto v6 = CHostIPAddress::ip_v6;

}  // namespace

extern "C" int getnameinfo(const sockaddr* address, socklen_t size, char* host, socklen_t hostSize, char* service,
                           socklen_t serviceSize, int flags) {
    static const auto real = reinterpret_cast<decltype(&getnameinfo)>(::dlsym(RTLD_NEXT, "getnameinfo"));
    const bool fails = Fails(flags == NI_NUMERICHOST ? "numeric look-up" : "look-up");
    return fails ? failing.error : real(address, size, host, hostSize, service, serviceSize, flags);
}

extern "C" const char* inet_ntop(int family, const void* address, char* text, socklen_t size) noexcept {
    static const auto real = reinterpret_cast<decltype(&inet_ntop)>(::dlsym(RTLD_NEXT, "inet_ntop"));
    return Fails("inet_ntop") ? nullptr : real(family, address, text, size);
}

extern "C" int socket(int domain, int type, int protocol) noexcept {
    EXPECT_NE(type & SOCK_CLOEXEC, 0) << domain;
    errno = failing.error;
    const bool fails = Fails(domain == AF_UNIX ? "device socket" : "netlink");
    return fails ? -1 : static_cast<int>(::syscall(SYS_socket, domain, type, protocol));
}

extern "C" int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept {
    const bool fails = level == SOL_NETLINK && isOldKernel;
    return fails ? -1 : static_cast<int>(::syscall(SYS_setsockopt, fd, level, name, value, size));
}

extern "C" ssize_t recv(int fd, void* buffer, std::size_t size, int flags) {
    timeval limit{};
    socklen_t length = sizeof limit;
    EXPECT_TRUE(::getsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, &length) == 0 && limit.tv_sec == 2);
    errno = failing.error;
    const ssize_t count = Fails("answer") ? -1 : ::syscall(SYS_recvfrom, fd, buffer, size, flags, nullptr, nullptr);
    if (const auto change = std::exchange(garbled, std::nullopt)) {
        std::memcpy(static_cast<char*>(buffer) + change->first, &change->second, sizeof change->second);
    }
    return count;
}

TEST(HostIpAddress, CountsEthernetInterfacesThatHaveAnAddress) {
    InPrivateNamespace([&] {
        MakeNetwork();
        for (const auto& row : Cases("host_name.cases", "address")) {
            for (const bool isOld : {true, false}) {
                isOldKernel = isOld;
                EXPECT_EQ(CHostIPAddress::GetHostIPAddress(std::stoi(row[2]), row[1] == "4" ? v4 : v6), row[3])
                    << row[2];
            }
        }
        CIPAddress address;  // a short text is a success that fills nothing in
        EXPECT_TRUE(CHostIPAddress::GetHostIPv4Address(address, 1) && address.GetString().empty());
        EXPECT_TRUE(CHostIPAddress::GetHostIPv4Address(address, 0) && address.GetString() == "10.1.2.5");
        EXPECT_TRUE(CHostIPAddress::GetHostIPv6Address(address, 1) && address.GetString() == "fd00::5");
        EXPECT_TRUE(!CHostIPAddress::GetHostIPv4Address(address, 2) && address.Bytes().size() == 16);
        address.SetBytes({1, 2, 3, 4, 5});
        EXPECT_EQ(address.GetString(), "fd00::5");
        address.SetBytes({0xFD, 0x12, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xAB, 0xCD});
        failing = {"inet_ntop", ENOSPC, 1};
        EXPECT_EQ(address.GetString(), "fd12:1:0:0:0:0:0:abcd");
        ExpectNothingThrown([&] { return CHostIPAddress::GetHostIPv4Address(address, 0); });
        ExpectNothingThrown([&] { return CHostIPAddress::GetHostIPv6Address(address, 1); });

        const struct {
            std::uint16_t offset;
            std::uint16_t value;
            const char* found;
        } garblings[] = {{0, 0, ""},          {0, 15, ""},        {0, 0xFFFF, ""},  // the first message's length
                         {24, 0, "fd00::5"},  {24, 3, "fd00::5"}, {24, 0xFFFF, "fd00::5"},  // of its first attribute
                         {4, NLMSG_ERROR, ""}};
        for (const auto& row : garblings) {
            garbled = {row.offset, row.value};
            failing = {"answer", EIO, *row.found == '\0' ? -1 : 0, 1};
            EXPECT_EQ(CHostIPAddress::GetHostIPAddress(0, v6), row.found) << row.offset << ' ' << row.value;
        }
        failing = {};
        Shell("ip tuntap del zz mode tun 2>/dev/null; true");
        EXPECT_EQ(TracesByLevel([] {
                      CHostIPAddress::GetHostIPAddress(0, v4);
                      CHostIPAddress::GetHostIPAddress(5, v6);
                      CHostIPAddress::GetHostIPAddress(4, v6);
                      failing = {"answer", EINTR, 3};
                      EXPECT_EQ(CHostIPAddress::GetHostIPAddress(0, v6), "fe80::1");
                      for (const char* const call : {"device socket", "netlink", "answer"}) {
                          failing = {call, EMFILE};
                          EXPECT_EQ(CHostIPAddress::GetHostIPAddress(0, v6), "");
                      }
                      failing = {};
                      garbled = {4, NLMSG_ERROR};  // with a negative number behind it
                      EXPECT_EQ(CHostIPAddress::GetHostIPAddress(0, v6), "");
                  }),
                  ReadFile(EM_TEST_DATA "/host_address.traces"));
    });
}

TEST(HostIpAddress, RefusedQueriesAreTracedAndGiveNothing) {
    const libnetif::network_interface gone("fifteencharacte");
    EXPECT_THROW(gone.get_hardware_type(), libnetif::libnetif_exception);
    EXPECT_THROW(gone.get_ipv4_address(), libnetif::libnetif_exception);
    EXPECT_THROW(gone.get_ipv6_address(), libnetif::libnetif_exception);
    EXPECT_THROW(libnetif::network_interface("sixteencharacter"), std::invalid_argument);
    EXPECT_THROW(libnetif::network_interface(""), std::invalid_argument);
    InChild([] {
        const CTraceCapture trace;
        const std::string wanted = ReadFile(EM_TEST_DATA "/host_refused.trace");
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        std::string name = "kept";
        EXPECT_EQ(CHostIPAddress::GetHostIPAddress(0, CHostIPAddress::ip_v4), "");
        EXPECT_FALSE(COsInfo::GetComputerNameEx(name, ComputerNamePhysicalDnsFullyQualified) || name != "kept");
        EXPECT_EQ(trace.All(), wanted);
    });
}

TEST(OsInfo, FirstAddressWithAUsableNameNamesTheHost) {
    InPrivateNamespace([] {
        Shell("ip -batch " EM_TEST_DATA "/network.names");
        ResolveFrom("");
        for (const auto& row : Cases("host_name.cases", "name")) {
            WriteAll("/etc/hosts", row[1]);
            const auto scenario = [&row] {
                failing = {row[2].c_str(), EAI_SYSTEM, 1};
                std::string name = "kept";
                EXPECT_FALSE(COsInfo::GetComputerNameEx(name, ComputerNamePhysicalDnsDomain));
                EXPECT_EQ(COsInfo::GetComputerNameEx(name, ComputerNamePhysicalDnsFullyQualified), row[3] != "kept");
                EXPECT_EQ(name, row[3]);
            };
            EXPECT_EQ(TracesByLevel(scenario), row[4]) << row[1];
        }
        WriteAll("/etc/hosts", "10.0.0.5 a-name-that-needs-memory\n");
        std::string name;
        ExpectNothingThrown(
            [&name] { return COsInfo::GetComputerNameEx(name, ComputerNamePhysicalDnsFullyQualified); });
    });
}
