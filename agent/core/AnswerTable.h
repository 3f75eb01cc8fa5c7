// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "agent/core/Command.h"

/// Reads one answer that the operator wrote.
/// @throw CAgentError as ParseCommand, and when there is no "OC"
Command ParseAnswer(const CRapidJsonUtil::value& object);

/// A request that has been answered.
struct Answered {
    std::string text;  ///< the message as it goes back
    Command asked;
    Command given;  ///< the same command as it goes back
};

/// The state of the simulated agent: what it answers to the module's requests. Any thread.
class CAnswerTable {
public:
    /// Replaces the table with a JSON array of answers, {"OC":...,"OE":...,"OI":...,"CA":...,"ST":...,"DA":...} each.
    /// @throw CAgentError naming the line
    void Load(std::string_view text);

    /// Replaces the answer for the same OC, OE, OI and CA; a new one goes before all others.
    /// @param answer  from ParseAnswer, or with "OC" at least
    void Set(const Command& answer);

    /// Answers the command at `index` of a message with the first answer that fits: "ST" (0 when the answer has none)
    /// and "DA" are those of the answer. Without a fitting answer "ST" is 1 and there is no "DA". A message without
    /// that command goes back as it came.
    Answered Answer(std::string_view message, int index) const;

    std::vector<Command> All() const;

    /// @return the first answer that fits the request; one with "ST" 1 when there is none
    Command Find(const Command& request) const;

private:
    mutable std::mutex lock_;  // guards all below
    std::vector<Command> answers_;
};
