// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// The network interfaces of the machine, as the kernel shows them to this process (its network namespace). The objects
/// hold no state beyond a name: every call asks the kernel anew, and any thread may make it.
namespace libnetif {

/// A query that the kernel refused. The text is `message`, "\nError message: " and the text of the errno value `error`.
class libnetif_exception : public std::runtime_error {
public:
    libnetif_exception(const std::string& message, int error);
};

class network_interface_manager {
public:
    /// @return the names of all interfaces in the order of if_nameindex
    /// @throw libnetif_exception  "Retriving interface information failed."
    std::vector<std::string> get_network_interfaces() const;
};

/// One interface, known by its name. It may vanish at any time; the queries then throw.
class network_interface {
public:
    /// @throw std::invalid_argument  for a name that is empty or longer than the kernel's 15 characters
    explicit network_interface(const std::string& name);

    /// @return the hardware type, one of the ARPHRD_* numbers (1 = Ethernet)
    /// @throw libnetif_exception  "Retriving interface ether address failed."
    int get_hardware_type() const;

    /// @return the primary IPv4 address in dotted form, empty when the interface has none
    /// @throw libnetif_exception  "Retriving interface ipv4 address failed."
    std::string get_ipv4_address() const;

    /// The IPv6 address under which others know this host. Preferred are addresses that reach beyond the link, then
    /// those not deprecated, then lasting ones over temporary ones; among equals the first in the kernel's order. An
    /// address that another host on the link already uses does not count.
    /// @throw libnetif_exception  "Retriving interface ipv6 address failed."
    std::optional<in6_addr> get_ipv6_address() const;

private:
    std::string name_;
};

}  // namespace libnetif
