// SPDX-License-Identifier: Apache-2.0
#include "service/core/ModuleThread.h"

#include <exception>
#include <utility>

#include "service/loop/Journal.h"

namespace {

// Between pieces of work the module's asynchronous requests are answered.
constexpr std::chrono::milliseconds kIdle{1000};

}  // namespace

CModuleThread::CModuleThread(AgentSettings settings, const CAnswerTable& answers, CTranscript::Listener listener)
    : settings_(std::move(settings)),
      answers_(answers),
      transcript_(std::nullopt, false, std::move(listener), 0),  // nobody takes entries from it
      thread_([this] { Run(); }) {}

CModuleThread::~CModuleThread() {
    {
        const std::lock_guard guard(lock_);
        stops_ = true;
        waiting_.clear();
        if (agent_ != nullptr) {
            agent_->Stop();
        }
    }
    changed_.notify_all();
}

bool CModuleThread::WaitForLoad() {
    std::unique_lock guard(lock_);
    changed_.wait(guard, [this] { return loaded_ != Loaded::NotYet; });
    return loaded_ == Loaded::Yes;
}

void CModuleThread::Post(Work work) {
    {
        const std::lock_guard guard(lock_);
        waiting_.push_back(std::move(work));
    }
    changed_.notify_all();
}

std::chrono::seconds CModuleThread::Busy() const {
    const auto begun = begun_.load();
    return begun == std::chrono::steady_clock::time_point()
               ? std::chrono::seconds(0)
               : std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begun);
}

/// @return false when the thread is to end; no work for a moment's idleness
bool CModuleThread::Take(Work& work) {
    std::unique_lock guard(lock_);
    changed_.wait_for(guard, kIdle, [this] { return stops_ || !waiting_.empty(); });
    if (waiting_.empty()) {
        return !stops_;
    }
    work = std::move(waiting_.front());
    waiting_.pop_front();
    return true;
}

void CModuleThread::Run() {
    CAgent agent(settings_, answers_, transcript_);
    const bool isLoaded = agent.Load();
    {
        const std::lock_guard guard(lock_);
        loaded_ = isLoaded ? Loaded::Yes : Loaded::No;
        agent_ = isLoaded ? &agent : nullptr;
    }
    changed_.notify_all();
    for (Work work; isLoaded && Take(work); work = nullptr) {
        begun_ = std::chrono::steady_clock::now();
        try {
            if (work) {
                work(agent);
            }
            agent.Work(std::chrono::milliseconds(0));
        } catch (const std::exception& error) {
            Journal(3, error.what());
        }
        begun_ = std::chrono::steady_clock::time_point();
    }
    const std::lock_guard guard(lock_);
    agent_ = nullptr;
}
