// SPDX-License-Identifier: Apache-2.0
#include "platform/host/NetworkInterface.h"

#include <arpa/inet.h>
#include <cerrno>
#include <linux/rtnetlink.h>
#include <memory>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>
#include <tuple>

#include "platform/files/UniqueFd.h"
#include "platform/host/InterfaceAddresses.h"

namespace libnetif {

namespace {

/// Reads the addresses of a named interface; `message` is the text of the exception.
std::vector<CInterfaceAddress> read_addresses(const std::string& name, unsigned char family, const char* message) {
    const unsigned int index = ::if_nametoindex(name.c_str());
    if (index == 0) {
        throw libnetif_exception(message, errno);
    }
    try {
        return ReadInterfaceAddresses(index, family);
    } catch (const std::system_error& error) {
        throw libnetif_exception(message, error.code().value());
    }
}

/// Orders IPv6 addresses by what they are worth to others: the smaller the better.
auto rank(const ifaddrmsg& address) {
    const bool is_confined = address.ifa_scope != RT_SCOPE_UNIVERSE;
    return std::tuple(is_confined, address.ifa_flags & IFA_F_DEPRECATED, address.ifa_flags & IFA_F_TEMPORARY);
}

}  // namespace

libnetif_exception::libnetif_exception(const std::string& message, int error)
    : std::runtime_error(message + "\nError message: " + std::generic_category().message(error)) {}

std::vector<std::string> network_interface_manager::get_network_interfaces() const {
    const std::unique_ptr<struct if_nameindex, decltype(&::if_freenameindex)> list(::if_nameindex(),
                                                                                   ::if_freenameindex);
    if (!list) {
        throw libnetif_exception("Retriving interface information failed.", errno);
    }
    std::vector<std::string> names;
    for (const struct if_nameindex* entry = list.get(); entry->if_index != 0; ++entry) {
        names.emplace_back(entry->if_name);
    }
    return names;
}

network_interface::network_interface(const std::string& name) : name_(name) {
    if (name.empty() || name.size() >= IFNAMSIZ) {
        throw std::invalid_argument("\"" + name + "\" is not the name of a network interface.");
    }
}

int network_interface::get_hardware_type() const {
    // Any kind of socket reaches the device layer; a local one needs no network protocol in the kernel.
    const CUniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    name_.copy(request.ifr_name, IFNAMSIZ - 1);
    if (!socket || ::ioctl(socket.Get(), SIOCGIFHWADDR, &request) != 0) {
        throw libnetif_exception("Retriving interface ether address failed.", errno);
    }
    return request.ifr_hwaddr.sa_family;
}

std::string network_interface::get_ipv4_address() const {
    const auto addresses = read_addresses(name_, AF_INET, "Retriving interface ipv4 address failed.");
    char text[INET_ADDRSTRLEN] = "";
    if (!addresses.empty()) {
        // The kernel keeps the primary address in front.
        ::inet_ntop(AF_INET, &addresses.front().address, text, sizeof text);
    }
    return text;
}

std::optional<in6_addr> network_interface::get_ipv6_address() const {
    const auto addresses = read_addresses(name_, AF_INET6, "Retriving interface ipv6 address failed.");
    const CInterfaceAddress* best = nullptr;
    for (const CInterfaceAddress& candidate : addresses) {
        const bool usable = (candidate.header.ifa_flags & IFA_F_DADFAILED) == 0;
        if (usable && (best == nullptr || rank(candidate.header) < rank(best->header))) {
            best = &candidate;
        }
    }
    return best == nullptr ? std::nullopt : std::optional(best->address.ipv6);
}

}  // namespace libnetif
