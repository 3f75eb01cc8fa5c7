// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include "service/loop/Loop.h"

/// When a mail that no server took is tried again: after 1, 5, 15 and 60 minutes.
///
/// It is made anew then, with the event that it is about: that carries all that the mail needs, and tells what is so
/// at that time. One thread, the loop's.
class CMailRetries {
public:
    using TellAgain = std::function<void(const std::string& subject)>;

    /// @param tellAgain  is called with what the mail was about
    CMailRetries(CLoop& loop, TellAgain tellAgain) : loop_(loop), tellAgain_(std::move(tellAgain)) {}
    ~CMailRetries() = default;
    CMailRetries(const CMailRetries&) = delete;
    CMailRetries& operator=(const CMailRetries&) = delete;

    /// The module has dealt with an event.
    /// @param isLost  no server took its mail
    void OnTold(const std::string& subject, bool isLost);

    /// @return whether its mail is tried again before another one, which begins now, would have an end
    bool IsNear(const std::string& subject) const;

    void Forget(const std::string& subject) { plans_.erase(subject); }

private:
    struct Plan {
        CLoopSource timer;
        std::chrono::steady_clock::time_point due;
        std::size_t lostMails = 0;  // in a row
    };

    CLoop& loop_;
    const TellAgain tellAgain_;
    std::map<std::string, Plan> plans_;
};
