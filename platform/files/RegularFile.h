// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <sys/stat.h>

/// Reads a regular file to its end, from where the descriptor stands. What a pseudo file claims about its size is a
/// hint, and a file may grow meanwhile: the end that a read finds decides.
/// @param limit  in bytes, of the whole text
/// @param text  the bytes are appended; unspecified on failure
/// @param status  what fstat told before the first read
/// @return 0, else an errno value: EISDIR for a directory, EINVAL for a pipe, device or socket, EFBIG beyond the limit
int ReadRegularFile(int fd, std::size_t limit, std::string& text, struct stat& status);

/// Opens a file, close-on-exec and never waiting for the other end of a pipe, and reads it whole.
/// @param text  its content; unspecified on failure
int ReadRegularFile(const std::string& path, std::size_t limit, std::string& text, struct stat& status);
int ReadRegularFile(const std::string& path, std::size_t limit, std::string& text);
