// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <mutex>

#include "platform/files/UniqueFd.h"
#include "service/loop/Loop.h"

/// Has the loop do what other threads ask for, in their order.
class CInbox {
public:
    explicit CInbox(CLoop& loop);
    ~CInbox() = default;
    CInbox(const CInbox&) = delete;
    CInbox& operator=(const CInbox&) = delete;

    /// Any thread.
    void Post(std::function<void()> work);

    /// Does what has come so far, in the loop or after its end.
    void Drain();

private:
    CUniqueFd event_;
    std::mutex lock_;  // guards the queue
    std::deque<std::function<void()>> waiting_;
    CLoopSource source_;
};
