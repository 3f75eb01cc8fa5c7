// SPDX-License-Identifier: Apache-2.0
#include "platform/files/DirectoryEntries.h"

#include <dirent.h>
#include <memory>

bool ForEachEntry(const std::string& directory, const std::function<void(const std::string& name)>& visit) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(directory.c_str()), ::closedir);
    if (entries == nullptr) {
        return false;
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this call's own
    while (const dirent* entry = ::readdir(entries.get())) {
        visit(entry->d_name);
    }
    return true;
}
