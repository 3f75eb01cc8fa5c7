// SPDX-License-Identifier: Apache-2.0
#include "agent/core/AgentSwitch.h"

#include <cerrno>
#include <cstdio>
#include <exception>

#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

namespace {

bool IsEvent(const SipJson& message) {
    return message.GetCmdElemValue(message.GetCmdIndex(), "ST", 0) == kEvent;
}

TranscriptEntry Entry(const char* kind, const SipJson& message) {
    TranscriptEntry entry;
    entry.kind = kind;
    entry.message = MessageText(message);
    entry.command = CurrentCommand(entry.message, message.GetCmdIndex());
    return entry;
}

}  // namespace

template <typename Work>
void CAgentSwitch::Guarded(const char* operation, Work work) noexcept {
    try {
        work();
    } catch (const std::exception& error) {
        failed_ = true;
        std::fprintf(stderr, "%s: %s failed: %s\n", program_invocation_short_name, operation, error.what());
    } catch (...) {
        failed_ = true;
        std::fprintf(stderr, "%s: %s failed\n", program_invocation_short_name, operation);
    }
}

void CAgentSwitch::AsyncRequest(CIExtensionModule* /*module*/, SipJson& message, unsigned int /*reserved*/) {
    Guarded("AsyncRequest", [&] {
        TranscriptEntry entry = Entry("async-request", message);
        {
            const std::lock_guard guard(lock_);
            asyncRequests_.push_back({.text = entry.message, .commandIndex = message.GetCmdIndex()});
        }
        transcript_.Write(entry);  // after the queue: this wakes the work loop
    });
}

void CAgentSwitch::SyncRequest(CIExtensionModule* /*module*/, SipJson& message, unsigned int /*timeout*/) {
    Guarded("SyncRequest", [&] {
        TranscriptEntry entry;
        entry.kind = "sync-request";
        entry.message = MessageText(message);
        Answered answered = answers_.Answer(entry.message, message.GetCmdIndex());
        entry.command = std::move(answered.asked);
        entry.given = std::move(answered.given);
        entry.answer = std::move(answered.text);
        if (!message.Parse(entry.answer.data(), entry.answer.size())) {
            throw CAgentError("the answer is nested too deeply, or holds what is no character");
        }
        transcript_.Write(entry);
    });
}

bool CAgentSwitch::DeliverMessage(CIExtensionModule* /*module*/, SipJson& message) {
    Guarded("DeliverMessage", [&] {
        TranscriptEntry entry = Entry(IsEvent(message) ? "event" : "reply", message);
        entry.result = "true";
        transcript_.Write(entry);
    });
    return true;
}

bool CAgentSwitch::EnableEvents(CIExtensionModule* /*module*/, bool enable) {
    eventsEnabled_ = enable;
    Guarded("EnableEvents", [&] {
        TranscriptEntry entry;
        entry.kind = "enable-events";
        entry.step = enable ? "enable" : "disable";
        entry.result = "true";
        transcript_.Write(entry);
    });
    return true;
}

bool CAgentSwitch::DisableEvents(CIExtensionModule* module) {
    return EnableEvents(module, false);
}

bool CAgentSwitch::ForwardEvent(CIExtensionModule* /*module*/, SipJson& message, unsigned int high, unsigned int low) {
    Guarded("ForwardEvent", [&] {
        TranscriptEntry entry = Entry("forward-event", message);
        entry.result = "true";
        entry.note = "module " + std::to_string(high) + ":" + std::to_string(low);
        transcript_.Write(entry);
    });
    return true;
}

std::optional<CAgentSwitch::AsyncMessage> CAgentSwitch::TakeAsyncRequest() {
    const std::lock_guard guard(lock_);
    if (asyncRequests_.empty()) {
        return std::nullopt;
    }
    AsyncMessage message = std::move(asyncRequests_.front());
    asyncRequests_.pop_front();
    return message;
}

void CAgentSwitch::Reset() {
    eventsEnabled_ = false;
    const std::lock_guard guard(lock_);
    asyncRequests_.clear();
}
