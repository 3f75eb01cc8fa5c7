// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

/// Brings the bytes of an XML file into UTF-8, without a byte order mark.
///
/// A byte order mark, or zeros around the first "<", tell UTF-16 and UTF-32 in either order. Every other file is in the
/// encoding that its declaration names (UTF-8, ASCII or Latin-1, each under the names in use); bytes that are not UTF-8
/// where they should be are taken for Latin-1, as programs write them that think of no encoding.
/// @return null; else what is wrong with the bytes, with `text` unspecified
const char* DecodeXml(std::string_view bytes, std::string& text);
