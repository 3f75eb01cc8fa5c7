// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// The kinds of names a computer goes by; only the last one is supported here.
enum _COMPUTER_NAME_FORMAT {
    ComputerNameNetBIOS,
    ComputerNameDnsHostname,
    ComputerNameDnsDomain,
    ComputerNameDnsFullyQualified,
    ComputerNamePhysicalNetBIOS,
    ComputerNamePhysicalDnsHostname,
    ComputerNamePhysicalDnsDomain,
    ComputerNamePhysicalDnsFullyQualified,
};

class COsInfo {
public:
    /// Finds the fully qualified name of this host by reverse lookup of its own addresses, in the order of getifaddrs:
    /// the first name that is not a "localhost..." wins. An address that the resolver does not know yields its numeric
    /// text. Any thread; nothing is thrown. Blocks while the resolver waits for a name server.
    /// @param name  receives the name; left alone when false is returned
    /// @param format  anything but ComputerNamePhysicalDnsFullyQualified returns false
    static bool GetComputerNameEx(std::string& name, _COMPUTER_NAME_FORMAT format);
};
