#include <sys/resource.h>

#include <gtest/gtest.h>

#include "platform/HostIpAddress.h"
#include "platform/NetworkInterface.h"
#include "platform/OsInfo.h"
#include "support/PrivateNamespace.h"
#include "support/TraceCapture.h"

using namespace std::string_literals;

namespace {

/// A machine with lo, two interfaces of names as long as the kernel allows, one of them without IPv4 address and one
/// without any, and two interfaces with several addresses, one of them with more than the kernel tells at once. What is
/// not Ethernet has addresses that must not be taken; the tunnel is left out where its device is kept for the real
/// root.
constexpr char kNetwork[] = R"(set -e
    if [ -w /dev/net/tun ]; then ip tuntap add zz mode tun; ip link set zz up; ip addr add 10.8.8.8/24 dev zz; fi
    ip link add abcdefghijklmno index 100 type veth peer name pppppppppppppp1 index 101
    ip link add eth1 index 102 type veth peer name eth2 index 103
    for i in lo abcdefghijklmno pppppppppppppp1 eth1 eth2
    do echo 1 >/proc/sys/net/ipv6/conf/$i/addr_gen_mode; ip link set $i up; done
    { cat; for i in $(seq 1000); do echo addr add 10.7.$((i / 250)).$((i % 250 + 1))/16 dev eth2; done; } <<END |
addr add 10.9.9.9/24 dev lo
addr add fd09::9/64 dev lo
addr add fe80::1/64 dev abcdefghijklmno nodad
addr add 10.0.0.5/24 dev eth1
addr add 10.0.0.6/24 dev eth1
addr add fe80::2/64 dev eth1 nodad
addr add fd00::5/64 dev eth1 nodad
addr add fd00::6/64 dev eth1 nodad preferred_lft 0
addr add 1.2.3.4/24 dev eth2
addr add fd00::7 peer fd00::8 dev eth2 nodad
END
    ip -batch -
)";

}  // namespace

TEST(HostIpAddress, CountsEthernetInterfacesThatHaveAnAddress) {
    constexpr auto v4 = CHostIPAddress::ip_v4;
    constexpr auto v6 = CHostIPAddress::ip_v6;
    const std::tuple<int, CHostIPAddress::ip_version, const char*> cases[] = {
        {0, v4, "10.0.0.5"}, {1, v4, "1.2.3.4"}, {2, v4, ""},        {-1, v4, ""},
        {0, v6, "fe80::1"},  {1, v6, "fd00::5"}, {2, v6, "fd00::7"}, {3, v6, ""},
    };
    InPrivateNamespace([&] {
        Shell(kNetwork);
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

        Shell("ip tuntap del zz mode tun 2>/dev/null; true");
        CTraceCapture trace;
        CHostIPAddress::GetHostIPAddress(0, v4);
        CHostIPAddress::GetHostIPAddress(5, v6);
        EXPECT_EQ(trace.All(),
                  R"(CHostIPAddress::GetHostIPv4Address: INFO: number of network interfaces = 5. Input index: 0.
CHostIPAddress::GetHostIPv4Address: INFO: interface  0 (lo) is ignored (not Ethernet interface). Interface type 772
CHostIPAddress::GetHostIPv4Address: INFO: Interface 1 (abcdefghijklmno) does not have IP V4.
CHostIPAddress::GetHostIPv4Address: INFO: Interface 2 (pppppppppppppp1) does not have IP V4.
CHostIPAddress::GetHostIPv4Address: INFO: IP V4 10.0.0.5 for interface 3 (eth1) will be returned. Requested index: 0
CHostIPAddress::GetHostIPv6Address: INFO: number of network interfaces = 5. Input index: 5.
CHostIPAddress::GetHostIPv6Address: INFO: number of network interfaces = 5 is smaller than input index 5. IP V6 will not be returned.
)");
    });
}

TEST(HostIpAddress, RefusedQueriesAreTracedAndGiveNothing) {
    EXPECT_THROW(libnetif::network_interface("gone0").get_hardware_type(), libnetif::libnetif_exception);
    EXPECT_THROW(libnetif::network_interface("gone0").get_ipv4_address(), libnetif::libnetif_exception);
    EXPECT_THROW(libnetif::network_interface("gone0").get_ipv6_address(), libnetif::libnetif_exception);
    EXPECT_THROW(libnetif::network_interface("sixteencharacter"), std::invalid_argument);
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
    const std::string prefix = "COsInfo::GetComputerNameEx: ";
    const struct {
        const char* hosts;
        const char* name;
        std::string lastTrace;
    } cases[] = {
        {"10.0.0.5 box.example.org box\n10.0.0.6 other\n", "box.example.org",
         prefix + "host = 10.0.0.5, ComputerName = box.example.org\n"},
        {"10.0.0.5 localhost.x\n10.0.0.6 second\n", "second", prefix + "host = 10.0.0.6, ComputerName = second\n"},
        {"127.0.0.1 box\n", "10.0.0.5", prefix + "host = 10.0.0.5, ComputerName = 10.0.0.5\n"},
        {"10.0.0.5 localhost\n10.0.0.6 localhost\n::1 localhost\nfe80::2 box\n", "kept",
         "COsInfo::GetHostDomName: inet_pton() cannot convert AF_INET6 address: fe80::2%eth0\n" + prefix +
             "GetHostDomName() failed (address=\"fe80::2%eth0\"\n"},
    };
    for (const auto& row : cases) {
        InPrivateNamespace([&] {
            Shell(
                "set -e; ip link add eth0 type veth peer name peer; cd /proc/sys/net/ipv6/conf; "
                "echo 1 >eth0/addr_gen_mode; echo 1 >peer/disable_ipv6; for i in lo peer eth0; do ip link set $i up; "
                "done; for i in fe80::2 10.0.0.5 10.0.0.6; do ip addr add $i/24 dev eth0; done");
            ResolveFrom(row.hosts);
            const CTraceCapture trace;
            std::string name = "kept";
            EXPECT_FALSE(COsInfo::GetComputerNameEx(name, ComputerNameDnsHostname));
            EXPECT_EQ(COsInfo::GetComputerNameEx(name, ComputerNamePhysicalDnsFullyQualified), row.name != "kept"s);
            EXPECT_EQ(name, row.name);
            EXPECT_TRUE(trace.All().ends_with(row.lastTrace)) << trace.All();
        });
    }
}
