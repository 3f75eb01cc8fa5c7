// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <string_view>

/// Keys and their values.
using CRegistryValues = std::map<std::string, std::string, std::less<>>;

/// The largest registry file, in bytes.
inline constexpr std::size_t kMaxRegistrySize = std::size_t{16} << 20;

/// Whether a text is a key as CRegistry describes it.
bool IsRegistryKey(std::string_view key);

/// Reads the text of a registry file; CRegistry.h describes it.
/// @param mustBeSummed  false: the last line, which tells that the text is whole, may be missing
/// @param values  what the text holds; empty when it cannot be used
/// @return why it cannot be used, for people; empty when it can
std::string ParseRegistry(std::string_view text, bool mustBeSummed, CRegistryValues& values);

/// The text that ParseRegistry reads as these values.
std::string FormatRegistry(const CRegistryValues& values);
