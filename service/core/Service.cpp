#include "service/core/Service.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <unistd.h>

#include "agent/core/Files.h"
#include "agent/core/Json.h"
#include "agent/core/TraceSink.h"
#include "command/link/DefaultAnswers.h"
#include "command/link/TraceRecord.h"
#include "service/components/Journal.h"
#include "service/components/StatusJson.h"
#include "service/core/MachineAnswers.h"
#include "service/fleet/Metrics.h"
#include "sip/Vocabulary.h"

namespace {

// A mail that no server took is tried again with the component's next event: the event carries all that the mail needs,
// and one that is over by then needs no mail.
constexpr auto kMailRetries = std::to_array<std::chrono::minutes>({
    std::chrono::minutes(1),
    std::chrono::minutes(5),
    std::chrono::minutes(15),
    std::chrono::minutes(60),
});

constexpr std::uint32_t kOk = 1;

constexpr std::chrono::milliseconds kMetricsDelay{500};  // several results make one file
constexpr mode_t kReadableByAll = 0644;

// "5 packages available for upgrade"
std::optional<std::uint32_t> FirstNumber(const std::string& text) {
    const auto digit = std::ranges::find_if(text, [](unsigned char c) { return std::isdigit(c) != 0; });
    const auto end = std::find_if_not(digit, text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
    return ParseNumber(std::string(digit, end));
}

}  // namespace

CService::CService(CLoop& loop, ServiceOptions options, ServiceConfig config)
    : loop_(loop),
      options_(std::move(options)),
      config_(std::move(config)),
      inbox_(loop),
      store_(options_.state),
      scheduler_(loop, components_,
                 [this](const std::string& name, const CheckResult& result) { OnResult(name, result); }) {
    SetAnswers();
    components_.Configure(config_.checks);
    for (const std::string& name : store_.Names()) {
        components_.FindOrMake(name);
    }
    for (Component& component : components_.All()) {
        if (store_.Restore(component)) {
            untold_.push_back(component.config.name);
        }
    }
}

CService::~CService() {
    module_.reset();
    Debug.Listen({});
}

void CService::SetAnswers() {
    answers_.Load(kDefaultAnswers);
    AnswerMachineQuestions(answers_);
    for (const AlertSettingValue& alert : config_.alerts) {
        answers_.Set(MakeCommand(kReadConfigurationValue, alert.id, alert.data));
    }
    store_.RestoreSettings(answers_);
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
    SetFleet();
    for (const std::string& name : untold_) {
        Tell(name, false);
    }
    for (const Component& component : components_.All()) {
        if (component.config.command.empty() && component.isPending && component.Effective() != kOk) {
            Tell(component.config.name, true);  // nobody will report it again just because the service has begun anew
        }
    }
    scheduler_.Restart(config_.parallel);
}

void CService::SetFleet() {
    std::array<char, HOST_NAME_MAX + 1> host{};
    ::gethostname(host.data(), host.size() - 1);
    fleet_.clear();
    for (const std::string& url : config_.alertmanagers) {
        fleet_.push_back(std::make_unique<CAlertmanager>(url, host.data()));
    }
    OnChange();
}

/// Those who look from afar are told.
void CService::OnChange() {
    for (const auto& alertmanager : fleet_) {
        alertmanager->Update(components_);
    }
    if (config_.metricsFile.empty() || metricsTimer_.IsSet()) {
        return;
    }
    metricsTimer_ = loop_.After(kMetricsDelay, [this] {
        metricsTimer_ = {};
        try {
            ReplaceFile(config_.metricsFile, MetricsText(components_, ledger_), kReadableByAll);
        } catch (const CAgentError& error) {
            Journal(4, error.what());
        }
    });
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
    SetAnswers();
    for (const AlertSettingValue& alert : config_.alerts) {
        const Command answer = answers_.Find(MakeCommand(kReadConfigurationValue, alert.id, {}));
        Ask(
            [alert, answer](CDelivery& delivery, CAgent& agent) {
                delivery.Notice(agent, MakeCommand(kWriteConfigurationValue, alert.id, answer.data));
                return Command();
            },
            {});
    }
    components_.Configure(config_.checks);
    SetFleet();
    scheduler_.Restart(config_.parallel);
    Journal(5, "the configuration is read again");
}

void CService::OnResult(const std::string& name, const CheckResult& result) {
    Component* component = components_.Find(name);
    if (component == nullptr) {
        return;
    }
    switch (CComponents::Take(*component, result)) {
        case Consequence::None:
            break;
        case Consequence::Settled:
            Journal(component->Effective() == kOk ? 5 : 4, name + ": " + component->text);
            Tell(name, false);
            break;
        case Consequence::Again:
            Tell(name, true);
            break;
    }
    if (component->config.isUpdate) {
        FollowUpdates(*component);
    }
    listener_->OnComponent(*component);
    OnChange();
}

void CService::FollowUpdates(Component& component) {
    const auto updates = FirstNumber(component.text);
    if (!updates || updates == component.updates) {
        return;
    }
    component.updates = updates;
    store_.KeepTold(component);
    store_.Save();
    if (*updates > 0) {
        Ask(
            [updates](CDelivery& delivery, CAgent& agent) {
                delivery.DeliverUpdates(agent, *updates);
                return Command();
            },
            {});
    }
}

/// The state is kept before: an event that a sudden end swallows is told by the next run.
void CService::Tell(const std::string& name, bool withoutMail) {
    Component& component = *components_.Find(name);
    component.told = Component::Clock::now();
    store_.KeepUntold(component);
    store_.Save();
    const ComponentEvent event{.id = component.id,
                               .name = name,
                               .designation = component.config.designation,
                               .status = component.Effective(),
                               .systemStatus = components_.SystemStatus(),
                               .withoutMail = withoutMail};
    const bool isPosted = module_->Post([this, event](CAgent& agent) {
        isMailLost_ = false;
        delivery_.Deliver(agent, event);
        inbox_.Post([this, name = event.name, isLost = isMailLost_.load()] { OnTold(name, isLost); });
    });
    if (!isPosted) {
        Journal(3, name + ": too many events wait for the module; this one is told after a restart");
    }
}

void CService::OnTold(const std::string& name, bool isMailLost) {
    MarkPending();
    OnChange();
    Component* component = components_.Find(name);
    if (component == nullptr) {
        return;
    }
    store_.KeepTold(*component);
    store_.Save();
    reminders_.erase(name);
    retries_.erase(name);
    const auto again = [this, name] {
        if (const Component* still = components_.Find(name); still != nullptr && still->Effective() != kOk) {
            Tell(name, false);
        }
    };
    if (component->Effective() != kOk && config_.reminder.count() > 0) {
        reminders_[name] = loop_.After(config_.reminder, again);
    }
    std::size_t& lost = lostMails_[name];
    if (!isMailLost) {
        lost = 0;
    } else if (lost < kMailRetries.size()) {
        Journal(4, name + ": no server took the mail; it is tried again in " +
                       std::to_string(kMailRetries[lost].count()) + " min");
        retries_[name] = loop_.After(kMailRetries[lost++], again);
    } else {
        Journal(3, name + ": no server took the mail, and it is not tried again before the next event");
    }
}

void CService::MarkPending() {
    const auto pending = ledger_.Pending();
    for (Component& component : components_.All()) {
        const bool isPending =
            std::ranges::find(pending, component.config.name, &CLedger::Alert::name) != pending.end();
        if (std::exchange(component.isPending, isPending) != isPending && component.since != 0) {
            store_.KeepTold(component);
        }
    }
}

Component* CService::Submit(const std::string& name, const CheckResult& result) {
    Component* component = components_.FindOrMake(name);
    if (component != nullptr) {
        OnResult(name, result);
        scheduler_.OnReport(*component);
    }
    return component;
}

bool CService::Ask(std::function<Command(CDelivery&, CAgent&)> work, std::function<void(const Command&)> done) {
    return module_->Post([this, work = std::move(work), done = std::move(done)](CAgent& agent) {
        const Command answer = work(delivery_, agent);
        if (done) {
            inbox_.Post([done, answer] { done(answer); });
        }
    });
}

bool CService::Acknowledge(std::function<void(std::size_t)> done) {
    auto count = std::make_shared<std::size_t>(0);
    return Ask(
        [this, count](CDelivery& delivery, CAgent& agent) {
            *count = ledger_.Pending().size();
            return delivery.Request(agent, MakeCommand(kAcknowledgeAlerts, 0, {}));
        },
        [this, count, done = std::move(done)](const Command& /*answer*/) {
            MarkPending();
            store_.Save();
            done(*count);
        });
}

void CService::ChangeSetting(const Command& answer) {
    answers_.Set(answer);
    if (answer.oc == kReadConfigurationValue && answer.oe) {
        store_.KeepSetting(*answer.oe, answer.data);
        store_.Save();
    }
}

std::string CService::Status() const {
    return StatusJson(components_, ledger_);
}

std::string CService::Pending() const {
    return PendingJson(components_, ledger_);
}

/// On any of the module's threads.
void CService::OnTrace(const std::string& print) {
    const auto code = MailReturnCode(print);
    const bool isError = print.find("ERROR!") != std::string::npos;
    if (code) {
        ledger_.OnMail(*code == 0);
        isMailLost_ = isMailLost_ || *code != 0;
    }
    if (isError) {
        Journal(3, print);
    }
    if (isError || code) {
        inbox_.Post([this, print] { listener_->OnTrace(print); });
    }
}

/// On any of the module's threads.
void CService::OnEntry(const TranscriptEntry& entry) {
    if (entry.kind == "event") {
        ledger_.OnModuleEvent(CurrentCommand(entry.message, entry.commandIndex));
    }
    if (entry.kind == "event" || entry.kind == "reply") {
        inbox_.Post([this, entry] { listener_->OnModuleEntry(entry); });
    }
}
