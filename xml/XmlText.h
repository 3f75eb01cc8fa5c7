// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

/// Where a text stands in a document, which decides what has to be escaped.
enum class XmlPlace {
    Verbatim,   ///< comments, CDATA, processing instructions: nothing can be escaped there
    Text,       ///< element text: ampersand, less-than, greater-than
    Attribute,  ///< attribute values: both quotes as well
};

/// The form of `text` that a document may hold at `place`.
///
/// What XML 1.0 cannot hold at all (control characters, surrogates, bytes that are not UTF-8) is dropped. A carriage
/// return, and any line end or tab in an attribute, is written as a numeric reference, since a reader would turn it
/// into something else.
std::string ToXml(std::string_view text, XmlPlace place);
