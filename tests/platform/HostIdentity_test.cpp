#include <sys/resource.h>

#include <gtest/gtest.h>

#include "PrivateNamespace.h"
#include "platform/HostIpAddress.h"
#include "platform/NetworkInterface.h"
#include "platform/OsInfo.h"
#include "support/TraceCapture.h"

namespace {

/// A machine with lo, two interfaces of names as long as the kernel allows, one of them without IPv4 address and one
/// without any, and two interfaces with several addresses. What is not Ethernet has addresses that must not be taken;
/// the tunnel is left out where its device is kept for the real root.
constexpr char kNetwork[] = R"(set -e
    if [ -w /dev/net/tun ]; then ip tuntap add zz mode tun; ip link set zz up; ip addr add 10.8.8.8/24 dev zz; fi
    ip link add abcdefghijklmno index 100 type veth peer name pppppppppppppp1 index 101
    ip link add eth1 index 102 type veth peer name eth2 index 103
    for i in lo abcdefghijklmno pppppppppppppp1 eth1 eth2
    do echo 1 >/proc/sys/net/ipv6/conf/$i/addr_gen_mode; ip link set $i up; done
    ip -batch - <<END
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
)";

void BindFile(const std::string& text, const char* path) {
    const std::string copy = "/tmp/bound" + std::to_string(::getpid());
    WriteAll(copy, text);
    ASSERT_EQ(::mount(copy.c_str(), path, nullptr, MS_BIND, nullptr), 0) << path;
    ::unlink(copy.c_str());
}

}  // namespace

TEST(HostIpAddress, CountsEthernetInterfacesThatHaveAnAddress) {
    const struct {
        int index;
        CHostIPAddress::ip_version version;
        const char* text;
    } cases[] = {
        {0, CHostIPAddress::ip_v4, "10.0.0.5"}, {1, CHostIPAddress::ip_v4, "1.2.3.4"},
        {2, CHostIPAddress::ip_v4, ""},         {-1, CHostIPAddress::ip_v4, ""},
        {0, CHostIPAddress::ip_v6, "fe80::1"},  {1, CHostIPAddress::ip_v6, "fd00::5"},
        {2, CHostIPAddress::ip_v6, "fd00::7"},  {3, CHostIPAddress::ip_v6, ""},
    };
    InPrivateNamespace([&] {
        Shell(kNetwork);
        for (const auto& [index, version, text] : cases) {
            EXPECT_EQ(CHostIPAddress::GetHostIPAddress(index, version), text) << index << " version " << version;
        }
        CIPAddress address;
        EXPECT_TRUE(CHostIPAddress::GetHostIPv4Address(address, 1));  // short: success, but nothing is filled in
        EXPECT_EQ(address.GetString(), "");
        EXPECT_TRUE(CHostIPAddress::GetHostIPv4Address(address, 0));
        EXPECT_FALSE(CHostIPAddress::GetHostIPv4Address(address, 2));
        EXPECT_EQ(address.GetString(), "10.0.0.5");
        EXPECT_TRUE(CHostIPAddress::GetHostIPv6Address(address, 1));
        EXPECT_EQ(address.GetString(), "fd00::5");
        address.SetBytes({1, 2, 3, 4, 5});
        EXPECT_EQ(address.GetString(), "fd00::5");

        Shell("ip tuntap del zz mode tun 2>/dev/null; true");
        CTraceCapture trace;
        CHostIPAddress::GetHostIPAddress(0, CHostIPAddress::ip_v4);
        CHostIPAddress::GetHostIPAddress(5, CHostIPAddress::ip_v6);
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

TEST(HostIpAddress, FindsTheLastOfManyInterfacesAndAddresses) {
    InPrivateNamespace([] {
        Shell(
            "{ for i in $(seq 150); do echo link add v$i type veth peer name w$i; done; for i in $(seq 1000); do "
            "echo addr add 10.1.$((i / 250)).$((i % 250 + 1))/16 dev v1; done; echo addr add 10.2.0.9/24 dev w150; } "
            "| ip -batch -");
        EXPECT_EQ(CHostIPAddress::GetHostIPAddress(0, CHostIPAddress::ip_v4), "10.1.0.2");
        EXPECT_EQ(CHostIPAddress::GetHostIPAddress(1, CHostIPAddress::ip_v4), "10.2.0.9");
    });
}

TEST(HostIpAddress, RefusedQueriesAreTracedAndGiveNothing) {
    const auto failure = [](const auto& query) -> std::string {
        try {
            query();
        } catch (const libnetif::libnetif_exception& error) {
            return error.what();
        }
        return "nothing thrown";
    };
    const libnetif::network_interface gone("gone0");
    const std::string why = "\nError message: No such device";
    EXPECT_EQ(failure([&] { gone.get_hardware_type(); }), "Retriving interface ether address failed." + why);
    EXPECT_EQ(failure([&] { gone.get_ipv4_address(); }), "Retriving interface ipv4 address failed." + why);
    EXPECT_EQ(failure([&] { gone.get_ipv6_address(); }), "Retriving interface ipv6 address failed." + why);
    EXPECT_THROW(libnetif::network_interface("sixteencharacter"), std::invalid_argument);
    InChild([] {
        const CTraceCapture trace;
        const rlimit none{0, 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        EXPECT_EQ(CHostIPAddress::GetHostIPAddress(0, CHostIPAddress::ip_v4), "");
        std::string name = "kept";
        EXPECT_FALSE(COsInfo::GetComputerNameEx(name, ComputerNamePhysicalDnsFullyQualified));
        EXPECT_EQ(name, "kept");
        EXPECT_EQ(trace.All(),
                  "CHostIPAddress::GetHostIPv4Address: ERROR: Cannot get information about network interfaces! Error "
                  "message: Retriving interface information failed.\nError message: Too many open files\n"
                  "GetComputerNameEx: ## ERROR getifaddrs() returned error 24 (Too many open files)\n");
    });
}

TEST(OsInfo, FirstAddressWithAUsableNameNamesTheHost) {
    const struct {
        const char* hosts;
        const char* name;
        const char* lastTrace;
    } cases[] = {
        {"10.0.0.5 box.example.org box\n10.0.0.6 other.example.org\n", "box.example.org",
         "COsInfo::GetComputerNameEx: host = 10.0.0.5, ComputerName = box.example.org\n"},
        {"10.0.0.5 localhost.localdomain\n10.0.0.6 second.example.org\n", "second.example.org",
         "COsInfo::GetComputerNameEx: host = 10.0.0.6, ComputerName = second.example.org\n"},
        {"127.0.0.1 box.example.org\n", "10.0.0.5",
         "COsInfo::GetComputerNameEx: host = 10.0.0.5, ComputerName = 10.0.0.5\n"},
        {"10.0.0.5 localhost\n10.0.0.6 localhost\n::1 localhost\nfe80::2 box\n", "kept",
         "COsInfo::GetHostDomName: inet_pton() cannot convert AF_INET6 address: fe80::2%eth0\n"
         "COsInfo::GetComputerNameEx: GetHostDomName() failed (address=\"fe80::2%eth0\"\n"},
    };
    for (const auto& [hosts, expected, lastTrace] : cases) {
        InPrivateNamespace([&, &hosts = hosts, &expected = expected, &lastTrace = lastTrace] {
            Shell(
                "set -e; ip link add eth0 type veth peer name peer; cd /proc/sys/net/ipv6/conf; "
                "echo 1 >eth0/addr_gen_mode; echo 1 >peer/disable_ipv6; for i in lo peer eth0; do ip link set $i up; "
                "done; for i in fe80::2 10.0.0.5 10.0.0.6; do ip addr add $i/24 dev eth0; done");
            BindFile(hosts, "/etc/hosts");
            BindFile("hosts: files\n", "/etc/nsswitch.conf");
            BindFile("", "/etc/resolv.conf");
            const CTraceCapture trace;
            std::string name = "kept";
            EXPECT_FALSE(COsInfo::GetComputerNameEx(name, ComputerNameDnsHostname));
            EXPECT_EQ(COsInfo::GetComputerNameEx(name, ComputerNamePhysicalDnsFullyQualified),
                      expected != std::string("kept"));
            EXPECT_EQ(name, expected);
            EXPECT_TRUE(trace.All().ends_with(lastTrace)) << trace.All();
        });
    }
}
