// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

/// Deeper elements than this are refused: every walk over a document recurses.
inline constexpr int kMaxXmlDepth = 64;

/// Tells what keeps a text in UTF-8, without a byte order mark, from being a well-formed document by XML 1.0, fifth
/// edition. The parser that builds the tree takes much that is none: doubled attributes, a second declaration, unknown
/// entities. Other programs could not read what is saved from that. A stricter parser would be one more library in the
/// agent's process; the fuzzer of the notification file compares with one instead.
///
/// Two things are refused that are well-formed: elements nested deeper than `kMaxXmlDepth`, and declarations inside
/// the document type, which can give entities and attributes that nobody here would see.
/// @return empty for a document, else what is wrong and where (in bytes), with nothing quoted of the text
std::string FindXmlError(std::string_view text);
