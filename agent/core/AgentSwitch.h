// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "agent/core/AnswerTable.h"
#include "agent/core/Transcript.h"
#include "em_alert/ExtensionModule.h"

/// The agent's core as the module sees it: answers requests from the table and writes everything down. It lets no
/// exception out and never calls the module, so no lock of the agent is ever held across a call of the module's.
class CAgentSwitch final : public CISwitch {
public:
    CAgentSwitch(const CAnswerTable& answers, CTranscript& transcript, unsigned int runMode)
        : answers_(answers), transcript_(transcript), runMode_(runMode) {}

    /// Queues the request for TakeAsyncRequest.
    void AsyncRequest(CIExtensionModule* module, SipJson& message, unsigned int reserved) override;

    /// Answers at once.
    void SyncRequest(CIExtensionModule* module, SipJson& message, unsigned int timeout) override;
    bool DeliverMessage(CIExtensionModule* module, SipJson& message) override;
    bool EnableEvents(CIExtensionModule* module, bool enable) override;
    bool DisableEvents(CIExtensionModule* module) override;

    /// There is no other module: the event is written down.
    bool ForwardEvent(CIExtensionModule* module, SipJson& message, unsigned int high, unsigned int low) override;
    unsigned int GetRunMode() override { return runMode_; }

    struct AsyncMessage {
        std::string text;
        int commandIndex;
    };

    /// The oldest request that was sent without waiting and is not answered yet.
    std::optional<AsyncMessage> TakeAsyncRequest();

    bool EventsEnabled() const { return eventsEnabled_; }

    /// Forgets what the module left behind when it was unloaded.
    void Reset();

    /// True once an operation could not do its work; the reason is on standard error.
    bool HasFailed() const { return failed_; }

private:
    template <typename Work>
    void Guarded(const char* operation, Work work) noexcept;

    const CAnswerTable& answers_;
    CTranscript& transcript_;
    const unsigned int runMode_;
    std::atomic<bool> eventsEnabled_{false};
    std::atomic<bool> failed_{false};

    std::mutex lock_;  // guards the queue
    std::deque<AsyncMessage> asyncRequests_;
};
