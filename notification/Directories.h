// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// Creates a directory with all missing parents, each with mode 0711 (less the umask). What exists is taken as it is,
/// whatever it is.
/// @param path  absolute; EINVAL otherwise
/// @return 0, else an errno value
int CreateDirectories(const std::string& path);
