#include <arpa/inet.h>
#include <functional>
#include <netdb.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <gtest/gtest.h>

#include "Cases.h"
#include "FailingCalls.h"
#include "platform/HostIpAddress.h"
#include "platform/NetworkInterface.h"
#include "platform/OsInfo.h"
#include "support/PrivateNamespace.h"
#include "support/TraceCapture.h"
#include "xml/TempDirectory.h"

using namespace std::string_literals;

namespace {

/// A machine with lo, two interfaces of names as long as the kernel allows, one of them without IPv4 address and one
/// without any, and two interfaces with several addresses, one of them with more than the kernel tells at once. What is
/// not Ethernet has addresses that must not be taken; the tunnel is left out where its device is kept for the real
/// root.
void MakeNetwork() {
    Shell(
        "set -e; cd " EM_TEST_DATA
        "; ip -batch network.links; for i in lo abcdefghijklmno pppppppppppppp1 eth1 eth2; "
        "do echo 1 >/proc/sys/net/ipv6/conf/$i/addr_gen_mode; ip link set $i up; done; { cat network.addresses; for i "
        "in $(seq 1000); do echo addr add 10.7.$((i / 250)).$((i % 250 + 1))/16 dev eth2; done; } | ip -batch -; if [ "
        "-w /dev/net/tun ]; then ip tuntap add zz mode tun; ip link set zz up; ip addr add 10.8.8.8/24 dev zz; fi");
}

}  // namespace

extern "C" int getnameinfo(const sockaddr* address, socklen_t size, char* host, socklen_t hostSize, char* service,
                           socklen_t serviceSize, int flags) {
    static const auto real = reinterpret_cast<decltype(&getnameinfo)>(::dlsym(RTLD_NEXT, "getnameinfo"));
    const bool fails = Fails(flags == NI_NUMERICHOST ? "numeric look-up" : "look-up");
    return fails ? failing.error : real(address, size, host, hostSize, service, serviceSize, flags);
}

extern "C" int socket(int domain, int type, int protocol) noexcept {
    errno = failing.error;
    const bool fails = Fails(domain == AF_UNIX ? "device socket" : "netlink");
    return fails ? -1 : static_cast<int>(::syscall(SYS_socket, domain, type, protocol));
}

extern "C" const char* inet_ntop(int family, const void* address, char* text, socklen_t size) noexcept {
    static const auto real = reinterpret_cast<decltype(&inet_ntop)>(::dlsym(RTLD_NEXT, "inet_ntop"));
    return Fails("inet_ntop") ? nullptr : real(family, address, text, size);
}

TEST(HostIpAddress, CountsEthernetInterfacesThatHaveAnAddress) {
    constexpr auto v4 = CHostIPAddress::ip_v4;
    constexpr auto v6 = CHostIPAddress::ip_v6;
    const std::tuple<int, CHostIPAddress::ip_version, const char*> cases[] = {
        {0, v4, "10.0.0.5"}, {1, v4, "1.2.3.4"}, {2, v4, ""},        {-1, v4, ""},
        {0, v6, "fe80::1"},  {1, v6, "fd00::5"}, {2, v6, "fd00::7"}, {3, v6, ""},
    };
    InPrivateNamespace([&] {
        MakeNetwork();
        for (const auto& [index, version, text] : cases) {
            EXPECT_EQ(CHostIPAddress::GetHostIPAddress(index, version), text) << index << " version " << version;
        }
        CIPAddress address;  // a short text is a success that fills nothing in
        EXPECT_TRUE(CHostIPAddress::GetHostIPv4Address(address, 1) && address.GetString().empty());
        EXPECT_TRUE(CHostIPAddress::GetHostIPv4Address(address, 0) && address.GetString() == "10.0.0.5");
        EXPECT_TRUE(CHostIPAddress::GetHostIPv6Address(address, 1) && address.GetString() == "fd00::5");
        EXPECT_FALSE(CHostIPAddress::GetHostIPv4Address(address, 2));
        EXPECT_EQ(address.Bytes().size(), 16U);
        address.SetBytes({1, 2, 3, 4, 5});
        EXPECT_EQ(address.GetString(), "fd00::5");
        failing = {"inet_ntop", EAFNOSUPPORT, 1};
        EXPECT_EQ(CIPAddress({0xFD, 0, 1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5}).GetString(), "fd00:102:0:0:0:0:0:5");

        Shell("ip tuntap del zz mode tun 2>/dev/null; true");
        EXPECT_EQ(TracesByLevel([] {
                      CHostIPAddress::GetHostIPAddress(0, v4);
                      CHostIPAddress::GetHostIPAddress(5, v6);
                      CHostIPAddress::GetHostIPAddress(4, v6);
                      for (const char* const call : {"device socket", "netlink", "inet_ntop"}) {
                          failing = {call, EMFILE};
                          EXPECT_EQ(CHostIPAddress::GetHostIPAddress(0, v6), "");
                      }
                      failing = {};
                  }),
                  ReadFile(EM_TEST_DATA "/host_address.traces"));
    });
}

TEST(HostIpAddress, RefusedQueriesAreTracedAndGiveNothing) {
    const auto messages = [](const char* name) {
        const libnetif::network_interface gone(name);
        const std::function<void()> queries[] = {[&] { gone.get_hardware_type(); }, [&] { gone.get_ipv4_address(); },
                                                 [&] { gone.get_ipv6_address(); }};
        std::string all;
        for (const auto& query : queries) {
            try {
                query();
            } catch (const libnetif::libnetif_exception& error) {
                all += error.what() + ";"s;
            }
        }
        return all;
    };
    const std::string why = " address failed.\nError message: No such device;Retriving interface ";
    EXPECT_EQ(messages("fifteencharacte"),
              "Retriving interface ether" + why + "ipv4" + why + "ipv6" + why.substr(0, 47));
    EXPECT_THROW(libnetif::network_interface("sixteencharacter"), std::invalid_argument);
    EXPECT_THROW(libnetif::network_interface(""), std::invalid_argument);
    InChild([] {
        const CTraceCapture trace;
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        std::string name = "kept";
        EXPECT_EQ(CHostIPAddress::GetHostIPAddress(0, CHostIPAddress::ip_v4), "");
        EXPECT_FALSE(COsInfo::GetComputerNameEx(name, ComputerNamePhysicalDnsFullyQualified) || name != "kept");
        EXPECT_EQ(trace.All(),
                  "CHostIPAddress::GetHostIPv4Address: ERROR: Cannot get information about network interfaces! Error "
                  "message: Retriving interface information failed.\nError message: Too many open files\n"
                  "GetComputerNameEx: ## ERROR getifaddrs() returned error 24 (Too many open files)\n");
    });
}

TEST(OsInfo, FirstAddressWithAUsableNameNamesTheHost) {
    InPrivateNamespace([] {
        Shell(
            "set -e; ip link add eth0 type veth peer name peer; cd /proc/sys/net/ipv6/conf; "
            "echo 1 >eth0/addr_gen_mode; echo 1 >peer/disable_ipv6; for i in lo peer eth0; do ip link set $i up; "
            "done; for i in fe80::2 127.9.0.5 10.0.0.5 10.0.0.6 fd00::5; do ip addr add $i/24 dev eth0; done");
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
    });
}
