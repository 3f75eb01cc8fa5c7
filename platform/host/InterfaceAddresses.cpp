// SPDX-License-Identifier: Apache-2.0
#include "platform/host/InterfaceAddresses.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <linux/rtnetlink.h>
#include <span>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <unistd.h>

#include "platform/files/UniqueFd.h"

namespace {

constexpr std::size_t kReceiveBuffer = 32768;  // the largest part of a dump that the kernel sends at once
constexpr timeval kAnswerTimeout{2, 0};

struct CDumpRequest {
    nlmsghdr header;
    ifaddrmsg selection;
};

[[noreturn]] void Fail(int error) {
    throw std::system_error(error, std::generic_category());
}

CUniqueFd RequestAddresses(const ifaddrmsg& wanted) {
    CUniqueFd netlink(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!netlink || ::setsockopt(netlink.Get(), SOL_SOCKET, SO_RCVTIMEO, &kAnswerTimeout, sizeof kAnswerTimeout) != 0) {
        Fail(errno);
    }
    // With strict checking the kernel selects the interface. One that does not know the option (before 4.20) sends the
    // addresses of all interfaces, so the index is tested again on reading.
    const int on = 1;
    ::setsockopt(netlink.Get(), SOL_NETLINK, NETLINK_GET_STRICT_CHK, &on, sizeof on);

    CDumpRequest request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.selection = wanted;
    if (::send(netlink.Get(), &request, sizeof request, 0) != static_cast<ssize_t>(sizeof request)) {
        Fail(errno);
    }
    return netlink;
}

using CBytes = std::span<const std::byte>;

template <class T>
bool Read(CBytes bytes, T& value) {
    if (bytes.size() < sizeof value) {
        return false;
    }
    std::memcpy(&value, bytes.data(), sizeof value);
    return true;
}

/// Cuts the first record off: messages and their attributes alike are a header, which holds the length of both, a
/// payload, and padding to four bytes.
template <class Header, class Length>
bool CutRecord(CBytes& rest, Length Header::*length, Header& header, CBytes& payload) {
    if (!Read(rest, header) || header.*length < sizeof header || header.*length > rest.size()) {
        return false;
    }
    payload = rest.subspan(sizeof header, header.*length - sizeof header);
    rest = rest.subspan(std::min(rest.size(), std::size_t{NLMSG_ALIGN(header.*length)}));
    return true;
}

/// The host's own address: on a point-to-point link IFA_ADDRESS is the other end's, IFA_LOCAL this one's.
bool ReadAddress(CBytes payload, CInterfaceAddress& result) {
    if (!Read(payload, result.header)) {
        return false;
    }
    const std::size_t size = result.header.ifa_family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr);
    bool found = false;
    rtattr attribute{};
    CBytes value;
    CBytes rest = payload.subspan(sizeof result.header);
    while (CutRecord(rest, &rtattr::rta_len, attribute, value)) {
        const bool own = attribute.rta_type == IFA_LOCAL || (attribute.rta_type == IFA_ADDRESS && !found);
        if (own && value.size() == size) {
            std::memcpy(&result.address, value.data(), size);
            found = true;
        }
    }
    return found;
}

/// @return false at the end of the dump
bool TakeMessages(CBytes received, const ifaddrmsg& wanted, std::vector<CInterfaceAddress>& addresses) {
    nlmsghdr message{};
    CBytes payload;
    while (CutRecord(received, &nlmsghdr::nlmsg_len, message, payload)) {
        if (message.nlmsg_type == NLMSG_DONE || message.nlmsg_type == NLMSG_ERROR) {
            // Both begin with an errno value, negative when the dump was refused or broke off.
            int error{};
            if (Read(payload, error) && error < 0) {
                Fail(-error);
            }
            return false;
        }
        CInterfaceAddress address{};
        if (message.nlmsg_type == RTM_NEWADDR && ReadAddress(payload, address) &&
            address.header.ifa_index == wanted.ifa_index && address.header.ifa_family == wanted.ifa_family) {
            addresses.push_back(address);
        }
    }
    return true;
}

}  // namespace

std::vector<CInterfaceAddress> ReadInterfaceAddresses(unsigned int interfaceIndex, unsigned char family) {
    ifaddrmsg wanted{};
    wanted.ifa_family = family;
    wanted.ifa_index = interfaceIndex;
    const CUniqueFd netlink = RequestAddresses(wanted);
    std::vector<CInterfaceAddress> addresses;
    std::vector<std::byte> buffer(kReceiveBuffer);
    for (;;) {
        const ssize_t received = TEMP_FAILURE_RETRY(::recv(netlink.Get(), buffer.data(), buffer.size(), 0));
        if (received == -1) {
            Fail(errno);
        }
        if (!TakeMessages(CBytes(buffer).first(static_cast<std::size_t>(received)), wanted, addresses)) {
            return addresses;
        }
    }
}
