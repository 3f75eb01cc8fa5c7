// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/core/Ledger.h"
#include "service/checks/Scheduler.h"
#include "service/components/Components.h"
#include "service/core/AlertAnswers.h"
#include "service/core/Announcer.h"
#include "service/core/Delivery.h"
#include "service/core/ModuleThread.h"
#include "service/core/StateStore.h"
#include "service/fleet/Fleet.h"
#include "service/loop/Inbox.h"

struct ServiceOptions {
    std::string config;
    std::string socket;
    std::string state;
    std::string module;
    bool showsTraces = false;  ///< all that the module prints goes to the journal, not its errors alone
};

/// Who is told, in the loop, what happens in the service.
class CIServiceListener {
public:
    virtual ~CIServiceListener() = default;
    virtual void OnComponent(const Component& component) = 0;
    /// What a check has just told of a component, behind OnComponent.
    virtual void OnChecked(const Component& component) = 0;
    /// A reload has left nothing that checks this component.
    virtual void OnUnchecked(const std::string& name) = 0;
    virtual void OnModuleEntry(const TranscriptEntry& entry) = 0;
    virtual void OnTrace(const std::string& print) = 0;
};

/// Components in, events out: results settle, what has settled is kept and delivered to the module, and what came of it
/// is kept. One thread, the loop's, unless stated.
class CService {
public:
    CService(CLoop& loop, ServiceOptions options, ServiceConfig config);
    ~CService();
    CService(const CService&) = delete;
    CService& operator=(const CService&) = delete;

    /// Loads the module and begins with the checks.
    /// @throw CAgentError when the module cannot be loaded
    void Start(CIServiceListener& listener);

    /// Stops the module, which breaks off the mail that it is sending, and takes in what came of it; what is lost or
    /// waits is told by the next run. The listener has to live until then.
    void Stop();

    /// Reads the configuration again; one with mistakes changes nothing, and is told to the journal.
    void Reload();

    std::string Status() const;
    std::string Pending() const;
    const CAnswerTable& Answers() const { return answers_; }
    CComponents& Components() { return components_; }

    /// Takes a report from outside.
    /// @return the component as it is then; null when there are too many
    Component* Submit(const std::string& name, const CheckResult& result);
    void CheckNow(const std::string& name) { scheduler_.CheckNow(name); }

    /// Has work done on the module's thread; `done` is called in the loop with its result.
    void Ask(std::function<Command(CDelivery&, CAgent&)> work, std::function<void(const Command&)> done);

    /// @param done  gets how many alerts were pending
    void Acknowledge(std::function<void(std::size_t)> done);

    /// @return false when a restart would forget what has changed since
    bool IsStateSaved() const { return store_.IsSaved(); }

    /// A setting that the module follows: answered like this from here on, also after a restart of the service.
    void ChangeSetting(const Command& answer) { alertAnswers_.Change(answer); }

    /// The configuration's value holds again, and the module is told.
    /// @param done  is called in the loop when it has been told
    void ResetSetting(std::uint32_t id, std::function<void()> done);

    /// False when the module's traces are off, and with them what it tells of failures.
    bool HearsModule() const { return hearsModule_; }

    /// How long the module has been at one call.
    std::chrono::seconds ModuleBusy() const { return module_ != nullptr ? module_->Busy() : std::chrono::seconds(0); }

private:
    void OnResult(const std::string& name, const CheckResult& result);
    void KeepFirst(const Component& component);
    void OnChecked(const std::string& name, const CheckResult& result);
    void FollowUpdates(Component& component);
    void Notice(const std::vector<AlertSettingValue>& settings);
    void OnTrace(const std::string& print);
    void OnEntry(const TranscriptEntry& entry);

    CLoop& loop_;
    const ServiceOptions options_;
    ServiceConfig config_;
    CInbox inbox_;
    CStateStore store_;
    CAnswerTable answers_;
    CAlertAnswers alertAnswers_{answers_, store_};
    CLedger ledger_;
    std::atomic<bool> hearsModule_{false};
    CDelivery delivery_{answers_, ledger_};
    CComponents components_;
    CScheduler scheduler_;
    CIServiceListener* listener_ = nullptr;
    CFleet fleet_;
    CAnnouncer announcer_;
    CLoopSource saving_;                     // a first result waits for it
    std::vector<Component> over_;            // watched by the last run, and by nobody any more
    std::vector<AlertSettingValue> tones_;   // the module never asks for them
    std::unique_ptr<CModuleThread> module_;  // last: its thread uses the others
};
