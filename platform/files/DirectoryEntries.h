// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

/// Calls `visit` with the name of each entry of a directory, "." and ".." included, in no order. (The iterator of
/// <filesystem> ends the process when it gets no memory.)
/// @return false, with errno set, when the directory cannot be read
bool ForEachEntry(const std::string& directory, const std::function<void(const std::string& name)>& visit);
