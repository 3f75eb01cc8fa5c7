// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/process/Process.h"
#include "service/components/CheckResult.h"
#include "service/loop/Loop.h"

/// One run of a plugin: started at once, ended with its children when its time is over. It tells its result once, from
/// the loop, and may be destroyed from there; destroyed before, it tells nothing and its command ends. A command that
/// cannot be ended (a dead disk or NFS server holds it) is told of again and again, until it goes.
class CCheckRun {
public:
    using Done = std::function<void(const CheckResult&)>;

    /// @param timeout  for the command; a group that ignores SIGTERM is killed a second later
    /// @param onHeld  gets a result a second after the kill, and after each further timeout, while it is still there
    CCheckRun(CLoop& loop, const std::vector<std::string>& command, std::chrono::milliseconds timeout, Done done,
              Done onHeld);
    ~CCheckRun() { process_.Abandon(); }  // many at once may be held, and the loop must not wait for each
    CCheckRun(const CCheckRun&) = delete;
    CCheckRun& operator=(const CCheckRun&) = delete;

private:
    void ReadOutput();
    void OnEnd();
    void OnTimeout();
    void Finish(const CheckResult& result);

    CLoop& loop_;
    const std::chrono::milliseconds timeout_;
    const Done done_;
    const Done onHeld_;
    CProcess process_;
    std::string output_;  // its beginning
    const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    int signals_ = 0;  // sent, as its time was over
    CLoopSource outputSource_;
    CLoopSource endSource_;
    CLoopSource timer_;
};
