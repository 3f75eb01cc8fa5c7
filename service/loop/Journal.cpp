// SPDX-License-Identifier: Apache-2.0
#include "service/loop/Journal.h"

#include <cstdio>
#include <cstdlib>

void Journal(int priority, std::string_view line) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment while the service runs
    static const bool isJournal = std::getenv("JOURNAL_STREAM") != nullptr;
    if (isJournal) {
        std::fprintf(stderr, "<%d>%.*s\n", priority, static_cast<int>(line.size()), line.data());
    } else {
        std::fprintf(stderr, "em-alertd: %.*s\n", static_cast<int>(line.size()), line.data());
    }
}
