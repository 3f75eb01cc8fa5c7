// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "agent/core/AgentSwitch.h"
#include "agent/core/AnswerTable.h"
#include "agent/core/ModuleLibrary.h"
#include "agent/core/Transcript.h"

struct AgentSettings {
    std::string library;  // path of the module
    unsigned int cabinet = 0;
    unsigned int runMode = 0;
};

/// Drives one module as an agent does, from loading its library to the proof that it is unloaded, and writes every step
/// down. Load and Unload belong to one thread, at a time when no other is in here; the other operations to any thread.
class CAgent {
public:
    CAgent(AgentSettings settings, const CAnswerTable& answers, CTranscript& transcript);

    /// Unloads what is loaded.
    ~CAgent();
    CAgent(const CAgent&) = delete;
    CAgent& operator=(const CAgent&) = delete;
    CAgent(CAgent&&) = delete;
    CAgent& operator=(CAgent&&) = delete;

    /// Loads, creates and starts the module, up to OnSwitchStarted.
    /// @return false at the first step that failed; Unload clears away what was done
    bool Load();

    /// Stops the module, which breaks off the mail that it is sending; it refuses events from then on.
    void Stop();

    /// Stops the module and unloads it, as far as it was loaded. A failed step does not keep the next ones from being
    /// tried.
    bool Unload();

    /// Hands an event to the module, unless that takes none.
    void SendEvent(SipJson& message);

    /// Hands a notice, or an answer, to the module.
    void SendNotice(SipJson& message);

    /// @return what the module returned: false when the request was for another server
    bool Request(SipJson& message);

    void Notify(unsigned int code);

    /// Answers the module's asynchronous requests for a while. They are answered in here and in Await only.
    void Work(std::chrono::milliseconds time);

    /// Works until the transcript holds an entry that fits, and takes that.
    /// @return its command; nothing when there was none in time
    std::optional<Command> Await(const TranscriptPattern& pattern, std::chrono::milliseconds time);

    unsigned int Cabinet() const { return settings_.cabinet; }

    /// True once the module asked for something that the agent could not do.
    bool HasFailed() const { return switch_.HasFailed(); }

private:
    bool OpenLibrary();
    bool CreateModule();
    bool StartModule();
    bool StopModule();
    bool ReadProperties();
    bool CloseLibrary();
    bool Step(const char* step, bool result, const std::string& note = {});
    void WriteMessage(const char* kind, const SipJson& message, const std::string& result = {});
    void AnswerAsyncRequests();
    bool WorkUntil(std::chrono::milliseconds time, const std::function<bool()>& done);

    const AgentSettings settings_;
    const CAnswerTable& answers_;
    CTranscript& transcript_;
    CAgentSwitch switch_;
    CModuleLibrary library_;
    CIExtensionModule* module_ = nullptr;  // owned by the library, between EM_Create and EM_Delete
    bool open_ = false;
    std::atomic<bool> started_ = false;
};
