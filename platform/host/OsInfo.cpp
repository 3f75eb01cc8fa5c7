// SPDX-License-Identifier: Apache-2.0
#include "platform/host/OsInfo.h"

#include <arpa/inet.h>
#include <cerrno>
#include <ifaddrs.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <new>
#include <string_view>
#include <sys/socket.h>
#include <system_error>

#include "platform/Cancellation.h"
#include "platform/diagnostics/Trace.h"

namespace {

union CSocketAddress {
    sockaddr any;
    sockaddr_in ipv4;
    sockaddr_in6 ipv6;
};

socklen_t SizeOf(sa_family_t family) {
    return family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
}

/// Reverse lookup of a numeric address text. A text with a scope ("fe80::1%eth0") is refused, so that an address which
/// means nothing beyond its link never names the host.
bool GetHostDomName(std::string& name, const char* text, sa_family_t family) {
    const bool ipv4 = family == AF_INET;
    CSocketAddress address{};
    address.ipv6 = {};
    address.any.sa_family = family;
    if (::inet_pton(family, text, ipv4 ? static_cast<void*>(&address.ipv4.sin_addr) : &address.ipv6.sin6_addr) != 1) {
        EM_TRACE(1,
                 ipv4 ? "COsInfo::GetHostDomName: inet_pton() cannot convert AF_INET address: %s\n"
                      : "COsInfo::GetHostDomName: inet_pton() cannot convert AF_INET6 address: %s\n",
                 text);
        return false;
    }
    char host[NI_MAXHOST] = "";
    const int error = ::getnameinfo(&address.any, SizeOf(family), host, sizeof host, nullptr, 0, 0);
    if (error != 0) {
        EM_TRACE(1,
                 ipv4 ? "COsInfo::GetHostDomName: AF_INET getnameinfo() failed! address=\"%s\" (error=%d \"%s\"\n"
                      : "COsInfo::GetHostDomName: AF_INET6 getnameinfo() failed! address=\"%s\" (error=%d \"%s\"\n",
                 text, error, ::gai_strerror(error));
        return false;
    }
    name = host;
    return true;
}

enum class Outcome { Found, Skipped, Failed };

/// @param name  receives the name of the interface address when it is found
Outcome NameByAddress(std::string& name, const sockaddr& address) {
    char host[NI_MAXHOST] = "";
    const sa_family_t family = address.sa_family;
    const int error = ::getnameinfo(&address, SizeOf(family), host, sizeof host, nullptr, 0, NI_NUMERICHOST);
    if (error != 0) {
        EM_TRACE(1, "COsInfo::GetComputerNameEx: getnameinfo() returned error %d (%s)\n", error, ::gai_strerror(error));
        return Outcome::Failed;
    }
    if (std::string_view(host).starts_with("127.")) {
        return Outcome::Skipped;
    }
    std::string found;
    if (!GetHostDomName(found, host, family)) {
        EM_TRACE(1, "COsInfo::GetComputerNameEx: GetHostDomName() failed (address=\"%s\"\n", host);
        return Outcome::Skipped;
    }
    EM_TRACE(1, "COsInfo::GetComputerNameEx: host = %s, ComputerName = %s\n", host, found.c_str());
    if (found.starts_with("localhost") || found == "0.0.0.0") {
        return Outcome::Skipped;
    }
    name = std::move(found);
    return Outcome::Found;
}

bool NameByAddresses(std::string& name) {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) {
        const int error = errno;
        EM_TRACE(1, "GetComputerNameEx: ## ERROR getifaddrs() returned error %d (%s)\n", error,
                 std::generic_category().message(error).c_str());
        return false;
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> list(first, ::freeifaddrs);
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        const sa_family_t family = entry->ifa_addr == nullptr ? sa_family_t{AF_UNSPEC} : entry->ifa_addr->sa_family;
        if (family != AF_INET && family != AF_INET6) {
            continue;
        }
        const Outcome outcome = NameByAddress(name, *entry->ifa_addr);
        if (outcome != Outcome::Skipped) {
            return outcome == Outcome::Found;
        }
    }
    return false;
}

}  // namespace

bool COsInfo::GetComputerNameEx(std::string& name, _COMPUTER_NAME_FORMAT format) {
    if (format != ComputerNamePhysicalDnsFullyQualified) {
        return false;
    }
    const CCancellationPause pause;  // getifaddrs is declared as never left by unwinding
    try {
        return NameByAddresses(name);
    } catch (const std::bad_alloc& error) {
        EM_TRACE(1, "COsInfo::GetComputerNameEx: ## ERROR %s\n", error.what());
        return false;
    }
}
