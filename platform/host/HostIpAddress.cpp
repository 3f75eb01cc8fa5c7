// SPDX-License-Identifier: Apache-2.0
#include "platform/host/HostIpAddress.h"

#include <arpa/inet.h>
#include <cerrno>
#include <net/if_arp.h>
#include <optional>
#include <stdexcept>
#include <vector>

#include "platform/Cancellation.h"
#include "platform/diagnostics/Trace.h"
#include "platform/host/NetworkInterface.h"

namespace {

constexpr std::size_t kShortestIpv4Text = 8;

std::optional<std::vector<std::string>> InterfaceNames(CHostIPAddress::ip_version version) {
    try {
        return libnetif::network_interface_manager().get_network_interfaces();
    } catch (const libnetif::libnetif_exception& error) {
        EM_TRACE(1,
                 "CHostIPAddress::GetHostIPv%dAddress: ERROR: Cannot get information about network interfaces! Error "
                 "message: %s\n",
                 version, error.what());
    } catch (const std::invalid_argument& error) {
        EM_TRACE(1,
                 "CHostIPAddress::GetHostIPv%dAddress: ERROR: Cannot get information about network interfaces! Invalid "
                 "argument error: %s\n",
                 version, error.what());
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1,
                 "CHostIPAddress::GetHostIPv%dAddress: ERROR: Cannot get information about network interfaces! General "
                 "error.\n",
                 version);
    }
    return std::nullopt;
}

std::string AddressText(const libnetif::network_interface& interface, CHostIPAddress::ip_version version) {
    if (version == CHostIPAddress::ip_v4) {
        return interface.get_ipv4_address();
    }
    char text[INET6_ADDRSTRLEN] = "";
    const std::optional<in6_addr> address = interface.get_ipv6_address();
    if (address && ::inet_ntop(AF_INET6, &*address, text, sizeof text) == nullptr) {
        throw libnetif::libnetif_exception("Can't convert ipv6 address to string.", errno);
    }
    return text;
}

std::string FindAddress(const std::vector<std::string>& names, int index, CHostIPAddress::ip_version version) {
    int matches = 0;
    for (const std::string& entry : names) {
        const auto number = static_cast<int>(&entry - names.data());
        const char* const name = entry.c_str();
        const libnetif::network_interface interface(entry);
        const int type = interface.get_hardware_type();
        if (type != ARPHRD_ETHER) {
            EM_TRACE(4,
                     "CHostIPAddress::GetHostIPv%dAddress: INFO: interface  %d (%s) is ignored (not Ethernet "
                     "interface). Interface type %d\n",
                     version, number, name, type);
            continue;
        }
        std::string text = AddressText(interface, version);
        if (text.empty()) {
            EM_TRACE(4, "CHostIPAddress::GetHostIPv%dAddress: INFO: Interface %d (%s) does not have IP V%d.\n", version,
                     number, name, version);
        } else if (matches++ == index) {
            EM_TRACE(3,
                     "CHostIPAddress::GetHostIPv%dAddress: INFO: IP V%d %s for interface %d (%s) will be returned. "
                     "Requested index: %d\n",
                     version, version, text.c_str(), number, name, index);
            return text;
        }
    }
    return {};
}

/// @return false, traced, when the action threw
template <class Action>
bool IsDone(CHostIPAddress::ip_version version, Action action) {
    try {
        return action();
    } catch (const std::invalid_argument& error) {
        EM_TRACE(4, "CHostIPAddress::GetHostIPv%dAddress: ERROR: Cannot get IP address. Invalid argument error: %s\n",
                 version, error.what());
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(4, "CHostIPAddress::GetHostIPv%dAddress: ERROR: Cannot get IP address. General error.\n", version);
    }
    return false;
}

bool FillAddress(CIPAddress& address, const std::string& text, CHostIPAddress::ip_version version) {
    return IsDone(version, [&] {
        const bool isV4 = version == CHostIPAddress::ip_v4;
        std::vector<unsigned char> bytes(isV4 ? sizeof(in_addr) : sizeof(in6_addr));
        const bool isRead = ::inet_pton(isV4 ? AF_INET : AF_INET6, text.c_str(), bytes.data()) == 1;
        if (isRead) {
            address.SetBytes(std::move(bytes));
        }
        return isRead;
    });
}

}  // namespace

std::string CHostIPAddress::GetHostIPAddress(int index, ip_version version) {
    const CCancellationPause pause;  // if_nameindex is declared as never left by unwinding
    const std::optional<std::vector<std::string>> names = InterfaceNames(version);
    if (!names) {
        return {};
    }
    const auto count = static_cast<int>(names->size());
    EM_TRACE(4, "CHostIPAddress::GetHostIPv%dAddress: INFO: number of network interfaces = %d. Input index: %d.\n",
             version, count, index);
    if (count <= index) {
        EM_TRACE(4,
                 "CHostIPAddress::GetHostIPv%dAddress: INFO: number of network interfaces = %d is smaller than input "
                 "index %d. "
                 "IP V%d will not be returned.\n",
                 version, count, index, version);
        return {};
    }
    std::string text;
    IsDone(version, [&] {
        text = FindAddress(*names, index, version);
        return true;
    });
    return text;
}

bool CHostIPAddress::GetHostIPv4Address(CIPAddress& address, int index) {
    const std::string text = GetHostIPAddress(index, ip_v4);
    if (text.empty()) {
        return false;
    }
    return text.size() < kShortestIpv4Text || FillAddress(address, text, ip_v4);
}

bool CHostIPAddress::GetHostIPv6Address(CIPAddress& address, int index) {
    const std::string text = GetHostIPAddress(index, ip_v6);
    return !text.empty() && FillAddress(address, text, ip_v6);
}
