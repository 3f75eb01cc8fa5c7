// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// Gives a new file the extended attributes of an old one, its access-control list among them, or takes the list away
/// that the directory gave the new file when the old one has none.
///
/// The mode has to be set afterwards: the group's bits in the mode of a file with a list are the list's mask, and would
/// be rights of the whole group without it. Signatures of the old content are left out.
/// @param to  descriptor of the new file
/// @return 0, else the errno value of the first attribute that could not be kept
int CopyFileAttributes(const std::string& from, int to);
