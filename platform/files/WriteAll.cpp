// SPDX-License-Identifier: Apache-2.0
#include "platform/files/WriteAll.h"

#include <cerrno>
#include <unistd.h>

int WriteAll(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = TEMP_FAILURE_RETRY(::write(file, text.data(), text.size()));
        if (written == -1) {
            return errno;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}
