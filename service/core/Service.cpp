// SPDX-License-Identifier: Apache-2.0
#include "service/core/Service.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "agent/core/Json.h"
#include "agent/traces/ModuleTraces.h"
#include "agent/traces/TraceSink.h"
#include "service/components/StatusJson.h"
#include "service/loop/Journal.h"
#include "sip/Vocabulary.h"

namespace {

// First results of checks come by the hundred after a start, and each save writes the whole state.
constexpr std::chrono::milliseconds kFirstResults{1000};

// "5 packages available for upgrade"
std::optional<std::uint32_t> FirstNumber(const std::string& text) {
    std::uint32_t number{};
    const char* const end = text.data() + text.size();
    const char* const digit = std::find_if(text.data(), end, [](unsigned char c) { return std::isdigit(c) != 0; });
    return std::from_chars(digit, end, number).ec == std::errc() ? std::optional(number) : std::nullopt;
}

}  // namespace

CService::CService(CLoop& loop, ServiceOptions options, ServiceConfig config)
    : loop_(loop),
      options_(std::move(options)),
      config_(std::move(config)),
      inbox_(loop),
      store_(options_.state),
      scheduler_(loop, components_,
                 [this](const std::string& name, const CheckResult& result) { OnChecked(name, result); }),
      fleet_(loop, components_, ledger_),
      announcer_(loop, inbox_, components_, store_, ledger_, delivery_, [this] { fleet_.Update(); }) {
    tones_ = alertAnswers_.Configure(config_.alerts);
    std::erase_if(tones_,
                  [](const auto& one) { return one.id != kBeepWarningSequence && one.id != kBeepErrorSequence; });
    announcer_.SetReminder(config_.reminder);
    components_.Configure(config_.checks);
    for (const std::string& name : store_.Known()) {
        if (Component* known = components_.FindOrMake(name)) {
            store_.Restore(*known);
        }
    }
    over_ = components_.Configure(config_.checks);
}

CService::~CService() {
    module_.reset();
    Debug.Listen({});
}

void CService::Start(CIServiceListener& listener) {
    listener_ = &listener;
    Debug.Show(false);
    Debug.Listen([this](const std::string& print) { OnTrace(print); });
    module_ = std::make_unique<CModuleThread>(
        AgentSettings{.library = options_.module}, answers_,
        [this](const TranscriptEntry& entry, const std::string& /*sentence*/) { OnEntry(entry); });
    if (!module_->WaitForLoad()) {
        throw CAgentError("the module " + options_.module + " could not be loaded and started");
    }
    Notice(tones_);
    announcer_.Use(module_.get());
    fleet_.Configure(config_.alertmanagers, config_.metricsFile);
    for (const Component& gone : over_) {
        announcer_.TellOver(gone);
    }
    for (Component& component : components_.All()) {
        if (component.isMailDue) {
            announcer_.Tell(component, CAnnouncer::Telling::News);
        }
    }
    for (Component& component : components_.All()) {
        if (component.config.command.empty() && component.isRestored && component.isPending) {
            // Nobody will report it again just because the service has begun anew.
            announcer_.Tell(component, CAnnouncer::Telling::Relisting);
        }
        if (component.isUpdateDue && component.config.isUpdate) {
            announcer_.TellUpdates(component);
        }
    }
    scheduler_.Restart(config_.parallel);
    Journal(5, options_.config + ": " + ChecksText(config_));
}

void CService::Stop() {
    announcer_.Use(nullptr);
    module_.reset();
    inbox_.Drain();
    store_.Save();
}

void CService::Reload() {
    ServiceConfig next;
    std::vector<ConfigMistake> mistakes;
    if (!ReadServiceConfig(options_.config, next, mistakes)) {
        for (const ConfigMistake& mistake : mistakes) {
            Journal(3, MistakeText(options_.config, mistake));
        }
        Journal(3, "the configuration stays as it was");
        return;
    }
    config_ = std::move(next);
    Notice(alertAnswers_.Configure(config_.alerts));
    announcer_.SetReminder(config_.reminder);
    for (const Component& gone : components_.Configure(config_.checks)) {
        announcer_.TellOver(gone);
        listener_->OnUnchecked(gone.config.name);
    }
    for (Component& component : components_.All()) {
        announcer_.TakeBack(component);
        if (component.config.command.empty()) {
            listener_->OnUnchecked(component.config.name);
        }
    }
    store_.Save();
    fleet_.Configure(config_.alertmanagers, config_.metricsFile);
    scheduler_.Restart(config_.parallel);
    Journal(5, "the configuration is read again: " + ChecksText(config_));
}

void CService::OnResult(const std::string& name, const CheckResult& result) {
    Component* component = components_.Find(name);
    if (component == nullptr) {
        return;
    }
    const std::time_t since = component->since;
    switch (CComponents::Take(*component, result)) {
        case Consequence::None:
            store_.Keep(*component);  // a text alone is written with the next change, or at the stop
            if (component->since != since || !store_.IsSaved()) {
                KeepFirst(*component);
            }
            break;
        case Consequence::Settled:
            Journal(component->IsBad() ? 4 : 5, name + ": " + component->text);
            announcer_.TellNews(*component);
            break;
        case Consequence::Again:
            announcer_.Tell(*component, CAnnouncer::Telling::Relisting);
            break;
    }
    if (component->config.isUpdate && result.status != ComponentStatus::Unknown && result.isAnswer) {
        FollowUpdates(*component);  // a check that failed itself tells other numbers: "ended after 70 s"
    }
    listener_->OnComponent(*component);
    fleet_.Update();
}

void CService::KeepFirst(const Component& component) {
    if (component.config.command.empty()) {
        store_.Save();  // nobody will report it again just because the service has ended
    } else if (!saving_.IsSet()) {
        saving_ = loop_.After(kFirstResults, [this] {
            saving_ = {};
            store_.Save();
        });
    }
}

void CService::OnChecked(const std::string& name, const CheckResult& result) {
    OnResult(name, result);
    if (const Component* component = components_.Find(name)) {
        listener_->OnChecked(*component);
    }
}

void CService::FollowUpdates(Component& component) {
    const auto updates = FirstNumber(component.text);
    if (!updates || updates == component.updates) {
        return;
    }
    component.updates = updates;
    component.isUpdateDue = *updates > 0;
    store_.Keep(component);
    store_.Save();
    if (*updates > 0) {
        announcer_.TellUpdates(component);
    }
}

void CService::Notice(const std::vector<AlertSettingValue>& settings) {
    for (const AlertSettingValue& setting : settings) {
        Ask(
            [setting](CDelivery& delivery, CAgent& agent) {
                delivery.Notice(agent, MakeCommand(kWriteConfigurationValue, setting.id, setting.data));
                return Command();
            },
            {});
    }
}

Component* CService::Submit(const std::string& name, const CheckResult& result) {
    Component* component = components_.FindOrMake(name);
    if (component != nullptr) {
        announcer_.TakeBack(*component);
        OnResult(name, result);
        scheduler_.OnReport(*component);
    }
    return component;
}

void CService::Ask(std::function<Command(CDelivery&, CAgent&)> work, std::function<void(const Command&)> done) {
    module_->Post([this, work = std::move(work), done = std::move(done)](CAgent& agent) {
        const Command answer = work(delivery_, agent);
        if (done) {
            inbox_.Post([done, answer] { done(answer); });
        }
    });
}

void CService::ResetSetting(std::uint32_t id, std::function<void()> done) {
    Notice(alertAnswers_.Reset(id));
    Ask([](CDelivery& /*delivery*/, CAgent& /*agent*/) { return Command(); },
        [done = std::move(done)](const Command& /*nothing*/) { done(); });
}

void CService::Acknowledge(std::function<void(std::size_t)> done) {
    auto count = std::make_shared<std::size_t>(0);
    Ask(
        [this, count](CDelivery& delivery, CAgent& agent) {
            *count = ledger_.Pending().size();
            return delivery.Request(agent, MakeCommand(kAcknowledgeAlerts));
        },
        [count, done = std::move(done)](const Command& /*answer*/) { done(*count); });
}

std::string CService::Status() const {
    return StatusJson(components_, ledger_);
}

std::string CService::Pending() const {
    return PendingJson(components_, ledger_);
}

/// On any of the module's threads.
void CService::OnTrace(const std::string& print) {
    hearsModule_ = true;
    const auto code = MailReturnCode(print);
    const bool isError = print.find("ERROR!") != std::string::npos;
    if (code) {
        ledger_.OnMail(*code == 0);
        announcer_.OnMail(*code == 0);
    }
    if (isError || options_.showsTraces) {
        std::istringstream lines(print);
        for (std::string line; std::getline(lines, line);) {
            if (!line.empty()) {
                Journal(isError ? 3 : 7, line);
            }
        }
    }
    if (isError || code) {
        inbox_.Post([this, print] { listener_->OnTrace(print); });
    }
}

/// On any of the module's threads.
void CService::OnEntry(const TranscriptEntry& entry) {
    if (entry.kind == "event") {
        ledger_.OnModuleEvent(entry.command);
    }
    if (entry.kind == "event" && entry.command.oc == kAcknowledgeAlerts) {  // by whatever way it was asked for
        inbox_.Post([this] {
            announcer_.MarkPending();
            store_.Save();
            fleet_.Update();
        });
    }
    if (entry.kind == "event" || entry.kind == "reply") {
        inbox_.Post([this, entry] { listener_->OnModuleEntry(entry); });
    }
}
