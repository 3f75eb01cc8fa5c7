// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/host/IpAddress.h"

/// The addresses of this host that others see: those of its Ethernet interfaces. Any thread; nothing is thrown.
///
/// The index counts, from 0 and in the kernel's interface order, the Ethernet interfaces that have an address of the
/// wanted version. An index that is not below the number of all interfaces finds nothing.
class CHostIPAddress {
public:
    enum ip_version { ip_v4 = 4, ip_v6 = 6 };

    /// @return the address text, empty when there is none or the kernel refuses a query (traced)
    static std::string GetHostIPAddress(int index, ip_version version);

    /// @param address  left alone on failure, and also by an address text shorter than 8 characters ("1.2.3.4"), which
    ///                 nevertheless counts as success
    static bool GetHostIPv4Address(CIPAddress& address, int index);

    /// @param address  left alone on failure
    static bool GetHostIPv6Address(CIPAddress& address, int index);
};
