#pragma once

#include <clocale>
#include <cstring>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <string>
#include <sys/utsname.h>
#include <vector>

#include "platform/HostIpAddress.h"
#include "platform/OsInfo.h"

/// The host as the mail texts of this program see it: its names, its addresses, its clock, and a time locale for every
/// language. Stands in for functions of the C library and the platform; to be included once.
struct Host {
    const char* nodeName = " alpha ";  ///< null: the system does not tell it
    std::string fullName = "alpha.example.net";
    std::vector<unsigned char> ipv4 = {10, 20, 30, 40};
    std::vector<unsigned char> ipv6 = {0xFD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5};
    std::time_t now = 0;
    std::string locale = "C";    ///< of LC_TIME
    std::string form = "%F %T";  ///< how any date or time is written, behind the locale and the format
};
inline Host host;

bool CHostIPAddress::GetHostIPv4Address(CIPAddress& address, int index) {
    address.SetBytes(host.ipv4);
    return index == 0 && !host.ipv4.empty();
}

bool CHostIPAddress::GetHostIPv6Address(CIPAddress& address, int index) {
    address.SetBytes(host.ipv6);
    return index == 0 && !host.ipv6.empty();
}

bool COsInfo::GetComputerNameEx(std::string& name, _COMPUTER_NAME_FORMAT format) {
    name = format == ComputerNamePhysicalDnsFullyQualified ? host.fullName : "";
    return true;
}

extern "C" {
int uname(utsname* names) noexcept {
    if (host.nodeName != nullptr) {
        std::strcpy(names->nodename, host.nodeName);
    }
    return host.nodeName != nullptr ? 0 : -1;
}

std::time_t time(std::time_t* now) noexcept {
    return now != nullptr ? *now = host.now : host.now;
}

char* setlocale(int category, const char* name) noexcept {
    if (category == LC_TIME && name != nullptr) {
        host.locale = name;
    }
    return host.locale.data();
}

std::size_t strftime(char* out, std::size_t size, const char* format, const std::tm* calendar) noexcept {
    std::ostringstream text;
    const std::string form = std::strchr(format, '#') == nullptr ? format : host.locale + format + " " + host.form;
    text << std::put_time(calendar, form.c_str());
    if (text.str().size() >= size) {
        return 0;
    }
    std::strcpy(out, text.str().c_str());
    return text.str().size();
}
}
