// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <linux/if_addr.h>
#include <netinet/in.h>
#include <vector>

/// One address of an interface.
struct CInterfaceAddress {
    ifaddrmsg header;  // family, scope and IFA_F_* flags
    union {
        in_addr ipv4;
        in6_addr ipv6;
    } address;
};

/// Asks the kernel over a netlink socket for the addresses of one interface.
/// @param family  AF_INET or AF_INET6
/// @return in the kernel's order; empty when there is none or the kernel lacks the family
/// @throw std::system_error  when the kernel does not answer or refuses
std::vector<CInterfaceAddress> ReadInterfaceAddresses(unsigned int interfaceIndex, unsigned char family);
