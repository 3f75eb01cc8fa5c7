// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "sip/RapidJsonUtil.h"

/// Ends the run; what() is a sentence for the operator.
class CAgentError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Takes the first character off a text.
/// @return nothing when the text begins with a byte that is no UTF-8, which alone is taken then
std::optional<unsigned int> TakeCharacter(std::string_view& text);

bool IsValidUtf8(std::string_view text);

/// Reads a text that is one JSON value. Deep nesting is refused before RapidJSON recurses into it.
/// @throw CAgentError with the position of the first fault
CRapidJsonUtil::Document ParseJson(std::string_view text);

/// Reads the next JSON value of a stream whose whole text is not nested too deeply.
/// @throw CAgentError as ParseJson
CRapidJsonUtil::Document ParseNextValue(rapidjson::MemoryStream& stream);

/// @return where the text opens more than 64 arrays and objects inside each other; npos when it does not
std::size_t TooDeepAt(std::string_view text);

/// The sentence for that.
std::string TooDeepText();

/// @return the value without white space; a number that JSON cannot hold ends the text early
std::string JsonText(const CRapidJsonUtil::value& value);

/// @return the text as a JSON string, with its quotes; each byte that is no UTF-8 becomes U+FFFD
std::string JsonString(std::string_view text);

/// @return the time in UTC as RFC 3339 writes it, with quotes; null for 0
std::string JsonTime(std::time_t time);
