// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <pugixml.hpp>

/// The text of a document for a file: UTF-8 with a declaration, each element and comment on a line of its own, indented
/// by two blanks a level. What lies deeper than eight levels, which is deeper than any setting, stands in one line:
/// with the indentation of every level a file of nested elements would grow to many times its size.
///
/// The library's own output leaves one of the two quotes alone and writes references that no XML reader accepts.
/// @throw std::bad_alloc
std::string WriteXml(const pugi::xml_document& document);
