// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

/// A configured server name for a trace. A name may carry a log-in, "user:password@mail", with "smtp://", "http://" or
/// their kin for TLS before it: what stands between the first colon of the log-in and the last "@" becomes "***".
inline std::string WithoutPassword(std::string_view server) {
    std::size_t begin = 0;
    for (const std::string_view scheme : {"smtp://", "smtps://", "http://", "https://"}) {
        if (server.starts_with(scheme)) {
            begin = scheme.size();
        }
    }
    const std::size_t colon = server.find(':', begin);
    const std::size_t end = server.rfind('@');
    std::string shown(server);
    if (end != std::string_view::npos && colon < end) {
        shown.replace(colon + 1, end - colon - 1, "***");
    }
    return shown;
}
