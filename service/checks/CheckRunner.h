// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/process/Process.h"
#include "service/components/CheckResult.h"
#include "service/loop/Loop.h"

/// One run of a plugin: started at once, ended with its children when its time is over. It tells its result once, from
/// the loop, and may be destroyed from there; destroyed before, it tells nothing and its command ends.
class CCheckRun {
public:
    using Done = std::function<void(const CheckResult&)>;

    /// @param timeout  for the command; a group that ignores SIGTERM is killed a second later
    CCheckRun(CLoop& loop, const std::vector<std::string>& command, std::chrono::milliseconds timeout, Done done);
    ~CCheckRun() = default;
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
    CProcess process_;
    std::string output_;  // its beginning
    const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    bool isLate_ = false;
    CLoopSource outputSource_;
    CLoopSource endSource_;
    CLoopSource timer_;
};
