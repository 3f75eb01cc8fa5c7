// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "agent/core/Command.h"
#include "agent/core/Files.h"

/// One thing that happened between the agent and the module. Empty texts are left out of the transcript.
struct TranscriptEntry {
    std::string kind;
    std::string step;     // what was done, for a kind that stands for several things
    std::string message;  // the message's JSON text
    Command command;      // the message's current one
    std::string answer;   // the JSON text of the message as it was answered
    Command given;        // what that is as a command
    std::string result;   // JSON text
    std::string note;     // the reason of a failure, the meaning of a number
};

/// What an await looks for; the empty members fit everything.
struct TranscriptPattern {
    std::string kind;
    std::string step;
    Command command;
};

/// Writes down the run, as a line of JSON or a sentence for each entry, and lets a thread wait for what comes. Any
/// thread; the order of the lines is the order of the calls.
class CTranscript {
public:
    using Clock = std::chrono::steady_clock;

    /// Is told each entry and its sentence, in their order, on the thread that writes it.
    using Listener = std::function<void(const TranscriptEntry& entry, const std::string& sentence)>;

    /// Begins the run's time.
    /// @param path  "-" is standard output; nothing is written down without one. A new file is for its owner alone: the
    ///              messages hold passwords.
    /// @param story  sentences instead of JSON; a terminal gets them anyway
    /// @param mostHeld  entries for Take, of which the oldest go
    /// @throw CAgentError when the file cannot be opened
    CTranscript(const std::optional<std::string>& path, bool story, Listener listener = {},
                std::size_t mostHeld = kMostHeld);

    /// @throw std::exception when memory ran out
    void Write(const TranscriptEntry& entry);

    /// Takes the oldest entry that fits the pattern and was not taken before.
    /// @return its command
    std::optional<Command> Take(const TranscriptPattern& pattern);

    /// The number of entries so far.
    std::size_t Count() const;

    /// Waits until there are more than `count` entries.
    /// @return false when that did not happen before the deadline
    bool WaitForMore(std::size_t count, Clock::time_point deadline) const;

    /// False once a line could not be written.
    bool IsComplete() const;

private:
    // A console may run for months and awaits nothing; a scenario comes nowhere near.
    static constexpr std::size_t kMostHeld = 10000;

    struct Held {
        std::string kind;
        std::string step;
        Command command;
    };

    const OwnedFile file_;
    const bool story_;
    const Listener listener_;
    const std::size_t mostHeld_;
    const Clock::time_point start_ = Clock::now();

    mutable std::mutex lock_;  // guards the lines' order and all below
    mutable std::condition_variable changed_;
    std::deque<Held> held_;
    std::size_t count_ = 0;
    bool complete_ = true;
};
