// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/core/Agent.h"
#include "agent/core/AnswerTable.h"
#include "agent/core/Ledger.h"
#include "agent/core/Transcript.h"
#include "agent/speaker/BusIoDriver.h"
#include "command/link/ModuleLink.h"
#include "command/link/TraceRecord.h"

struct LocalModuleOptions {
    AgentSettings agent;
    std::string answers;  ///< a JSON array; empty for mail texts that a person can read, and no more
    /// Where changed settings are kept, and found; empty where there is no place, so that none can be changed. Not
    /// given, they hold for this run alone.
    std::optional<std::string> settingsFile;
    std::optional<std::string> transcript;
    bool story = false;  ///< as a listener's sentences, everything
    std::string wav;
    std::string portLog;
    bool speaks = false;  ///< plays tones itself where there is no speaker
};

/// The module in this process, loaded with the first operation that needs it. This process is its agent.
class CLocalModule final : public CIModuleLink {
public:
    /// @param tell  gets a sentence for what the module does on its own, on any thread
    CLocalModule(LocalModuleOptions options, std::function<void(const std::string&)> tell);
    ~CLocalModule() override;
    CLocalModule(const CLocalModule&) = delete;
    CLocalModule& operator=(const CLocalModule&) = delete;

    bool IsService() const override { return false; }
    bool HearsModule() override { return hearsModule_; }
    ModuleAnswer Ask(Command request) override;
    Command AgentAnswer(const Command& question) override { return answers_.Find(question); }
    void ChangeSetting(std::uint32_t id, const std::string& data) override;
    std::string Status() override;
    std::string PendingAlerts() override;
    std::size_t Acknowledge() override;

    /// Loads the module if it is not.
    void Load();

    /// Stops the module and unloads it. An object that never loaded it has nothing to do.
    /// @return false when a step failed, or has failed before
    bool Unload();

    /// Loads the module anew, with another trace level.
    void Reload(unsigned traceLevel);

    /// A component has a status, 1 to 3, and so has the server from now on: delivers the event.
    /// Who is asked whether to wait, and says no twice in a row, has the module stopped, which breaks a mail off.
    /// @return what the module printed
    Traces Deliver(const std::string& name, const std::string& designation, std::uint32_t status);

    /// Answers the module's asynchronous requests for a moment.
    void Settle();

private:
    void LoadAnswers();
    void KeepSetting(const Command& answer) const;
    void OnEntry(const TranscriptEntry& entry, const std::string& sentence);
    std::uint32_t ComponentId(const std::string& name);
    Traces WaitFor(const std::function<void()>& work);

    const LocalModuleOptions options_;
    const std::function<void(const std::string&)> tell_;
    CAnswerTable answers_;
    CLedger ledger_;
    CTraceRecord record_;
    CTranscript transcript_;
    std::unique_ptr<CBusIoDriver> speaker_;
    std::unique_ptr<CAgent> agent_;              // loaded exactly while there is one; gone before the speaker is
    std::vector<std::string> components_;        // an object id is a place in here, counted from 1
    std::map<std::uint32_t, std::size_t> late_;  // replies that are to come to requests that were broken off
    bool failed_ = false;
    bool hearsModule_ = false;
};
