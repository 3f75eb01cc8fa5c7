// SPDX-License-Identifier: Apache-2.0
#include "notification/Directories.h"

#include <cerrno>
#include <sys/stat.h>

int CreateDirectories(const std::string& path) {
    if (!path.starts_with('/')) {
        return EINVAL;
    }
    constexpr mode_t kMode = 0711;
    std::size_t end = 0;
    do {
        end = path.find('/', end + 1);
        const std::string component = path.substr(0, end);
        if (::mkdir(component.c_str(), kMode) != 0 && errno != EEXIST) {
            return errno;
        }
    } while (end != std::string::npos);
    return 0;
}
