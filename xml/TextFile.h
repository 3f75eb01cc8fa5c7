// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

/// The largest file that is read, in bytes: well above any real settings file, well below what hurts the host.
inline constexpr std::size_t kMaxTextFileSize = std::size_t{16} << 20;

/// Reads a whole regular file.
/// @param text  the content; unspecified on failure
/// @return 0, else an errno value: EFBIG for a file above the limit, EINVAL for what is not a regular file
int ReadTextFile(const std::string& path, std::string& text);

/// Puts `text` in the place of a file, so that every reader, and a system that loses power at any moment, sees either
/// the old content or the new one, whole.
///
/// The text goes into a temporary file in the same directory (".<name>.em_alert.XXXXXX", created with mode 0600), which
/// takes owner, access-control list, extended attributes and mode of the file that it replaces, is synced and renamed;
/// then the directory is synced. A symbolic link stays: the file behind it is replaced, or made when it is missing.
/// Temporary files left by writers that died are removed on the way.
/// @return 0, else an errno value. Except for a failed sync of the directory, the old file is then untouched.
int ReplaceTextFile(const std::string& path, const std::string& text);
