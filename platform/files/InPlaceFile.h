// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

#include "platform/files/UniqueFd.h"

/// A small regular file that is read as a whole and changed in place. All operations leave errno set when they fail.
class CInPlaceFile {
public:
    /// Opens the file and reads it at one go. A directory, an empty device or pipe and a file beyond 64 MiB are
    /// refused, and for writing anything but a regular file.
    /// @param text  is empty, and gets the bytes
    /// @param flags  O_RDONLY, O_RDWR ...; always close-on-exec and never waiting
    bool Load(const char* path, std::string& text, int flags = 0);

    /// Puts `replacement` in the place of the bytes from `begin` up to `end` of a file that was loaded for writing as
    /// `text`, and closes it. When it fails, the bytes of the file and its length are what they were: the file first
    /// grows to its new length, and only then is anything overwritten, which needs no more room (where it does, as on
    /// copy-on-write file systems, what was overwritten is put back; errno EIO tells that even this failed).
    bool Replace(std::string_view text, std::size_t begin, std::size_t end, std::string_view replacement);

    /// Sets the mode of the open file, whatever the process's file creation mask is.
    bool SetMode(mode_t mode);

    /// Deletes the file that was opened as `path` and closes it; a symbolic link to it stays. errno is kept.
    void Remove(const char* path);

private:
    CUniqueFd file_;
};
