// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <sys/types.h>

using OwnedFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// Each of these throws CAgentError that names the path and the system's reason; a directory is refused.

/// Makes the directory that a file belongs into, with all that are missing on the way, with mode 0700.
void MakeParentDirectory(const std::string& path);

/// Opens a file that is read bit by bit, such as a pipe.
std::ifstream OpenInput(const std::string& path);

/// @return all of the file, of at most 64 MiB
std::string ReadWholeFile(const std::string& path);

/// Opens a file that is written, with mode 0600 when it is made: it may hold passwords and mails.
/// @param append  behind what is there, or in its place
OwnedFile OpenOutput(const std::string& path, bool append);

/// Replaces a file as a whole: a reader sees the old text or the new one. The new file has this mode, and directories
/// that are missing on the way are made with mode 0700.
void ReplaceFile(const std::string& path, const std::string& text, mode_t mode = 0600);

/// Takes the lock of an open file (flock), which ends with its descriptor. Does not throw.
/// @return 0; EWOULDBLOCK when another process has held it all that time; else the errno value that tells why not
int LockWithin(int descriptor, std::chrono::milliseconds time);

/// Lets the three standard descriptors stand for something: what is opened later would take the number of a closed one,
/// and be read and written as standard input or output. To be called first in main.
void KeepStandardDescriptors();
