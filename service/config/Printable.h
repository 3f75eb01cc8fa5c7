// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// What lists, labels, lines of the state, mails and terminals can show: valid UTF-8 without control characters, those
/// beyond ASCII (U+0080 to U+009F) included. A tab becomes a blank, each other byte that is no part of it "?".
/// @param longest  in bytes; characters without room are left out
std::string Printable(std::string_view text, std::size_t longest);
