// SPDX-License-Identifier: Apache-2.0
#include "service/loop/Journal.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Where systemd has connected standard error to the journal, this names the device and inode of that connection.
// Whoever is started from there inherits the name, but may have another standard error, such as a terminal.
bool IsJournal() {
    const char* const stream = std::getenv("JOURNAL_STREAM");  // NOLINT(concurrency-mt-unsafe): nobody changes it
    struct stat status {};
    return stream != nullptr && ::fstat(STDERR_FILENO, &status) == 0 &&
           stream == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

}  // namespace

void Journal(int priority, std::string_view line) {
    static const bool isJournal = IsJournal();
    if (isJournal) {
        std::fprintf(stderr, "<%d>%.*s\n", priority, static_cast<int>(line.size()), line.data());
    } else {
        std::fprintf(stderr, "em-alertd: %.*s\n", static_cast<int>(line.size()), line.data());
    }
}
