// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "agent/core/Agent.h"
#include "agent/core/AnswerTable.h"
#include "agent/core/Transcript.h"

/// The module, driven by one thread of its own: its calls may take as long as two mail servers are silent. Work is done
/// in the order in which it was posted.
class CModuleThread {
public:
    using Work = std::function<void(CAgent&)>;

    /// Loads the module on the new thread.
    /// @param listener  is told what happens between agent and module, on any thread
    CModuleThread(AgentSettings settings, const CAnswerTable& answers, CTranscript::Listener listener);

    /// Drops what waits and stops the module, so that the piece of work that the thread is at ends soon; unloads it.
    ~CModuleThread();
    CModuleThread(const CModuleThread&) = delete;
    CModuleThread& operator=(const CModuleThread&) = delete;

    /// Waits until the module is loaded.
    /// @return false when that failed
    bool WaitForLoad();

    /// Any thread. What waits is not bounded here: who posts for others counts (CControlCommands).
    void Post(Work work);

    /// How long the thread has been at the piece of work that it is at; 0 when it waits for work.
    std::chrono::seconds Busy() const;

private:
    void Run();
    bool Take(Work& work);

    const AgentSettings settings_;
    const CAnswerTable& answers_;
    CTranscript transcript_;
    std::atomic<std::chrono::steady_clock::time_point> begun_{};

    std::mutex lock_;  // guards all below
    std::condition_variable changed_;
    std::deque<Work> waiting_;
    bool stops_ = false;
    CAgent* agent_ = nullptr;  // the thread's, while it is loaded
    enum class Loaded { NotYet, Yes, No } loaded_ = Loaded::NotYet;

    std::jthread thread_;  // last: it uses all of the above
};
