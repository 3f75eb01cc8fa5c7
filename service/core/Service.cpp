#include "service/core/Service.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

#include "agent/core/Json.h"
#include "agent/settings/DefaultAnswers.h"
#include "agent/traces/ModuleTraces.h"
#include "agent/traces/TraceSink.h"
#include "service/components/StatusJson.h"
#include "service/core/MachineAnswers.h"
#include "service/loop/Journal.h"
#include "sip/Vocabulary.h"

namespace {

constexpr std::uint32_t kOk = 1;

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
                 [this](const std::string& name, const CheckResult& result) { OnResult(name, result); }),
      fleet_(loop, components_, ledger_),
      reminders_(loop, [this](const std::string& name) { TellAgain(name); }) {
    answers_.Load(kDefaultAnswers);
    SetAnswers();
    components_.Configure(config_.checks);
    for (const std::string& name : store_.Reported()) {
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

/// None is taken away: the module may be asking.
void CService::SetAnswers() {
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
    fleet_.Configure(config_.alertmanagers, config_.metricsFile);
    for (const std::string& name : untold_) {
        Tell(*components_.Find(name), false);
    }
    for (Component& component : components_.All()) {
        if (component.config.command.empty() && component.isRestored && component.isPending) {
            Tell(component, true);  // nobody will report it again just because the service has begun anew
        }
    }
    scheduler_.Restart(config_.parallel);
}

void CService::Stop() {
    module_.reset();
    inbox_.Drain();
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
        const Command answer = answers_.Find(MakeCommand(kReadConfigurationValue, alert.id));
        Ask(
            [alert, answer](CDelivery& delivery, CAgent& agent) {
                delivery.Notice(agent, MakeCommand(kWriteConfigurationValue, alert.id, answer.data));
                return Command();
            },
            {});
    }
    for (const Component& gone : components_.Configure(config_.checks)) {
        TellOver(gone);
    }
    store_.Save();
    fleet_.Configure(config_.alertmanagers, config_.metricsFile);
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
            Journal(component->IsBad() ? 4 : 5, name + ": " + component->text);
            Tell(*component, false);
            break;
        case Consequence::Again:
            Tell(*component, true);
            break;
    }
    if (component->config.isUpdate) {
        FollowUpdates(*component);
    }
    listener_->OnComponent(*component);
    fleet_.Update();
}

void CService::FollowUpdates(Component& component) {
    const auto updates = FirstNumber(component.text);
    if (!updates || updates == component.updates) {
        return;
    }
    component.updates = updates;
    store_.Keep(component);
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
void CService::Tell(Component& component, bool withoutMail) {
    ++component.untold;
    store_.Keep(component);
    store_.Save();
    const bool isPosted = Post({.id = component.id,
                                .name = component.config.name,
                                .designation = component.config.designation,
                                .status = component.Effective(),
                                .systemStatus = components_.SystemStatus(),
                                .withoutMail = withoutMail});
    if (!isPosted) {
        Journal(3, component.config.name + ": too many events wait for the module; this one is told after a restart");
    }
}

void CService::TellAgain(const std::string& name) {
    if (Component* component = components_.Find(name);
        component != nullptr && (component->IsBad() || component->isMailDue)) {
        Tell(*component, false);
    }
}

/// A component that is no longer watched keeps nobody awake.
void CService::TellOver(const Component& gone) {
    const std::string& name = gone.config.name;
    reminders_.Forget(name);
    store_.Forget(name);
    if (gone.IsBad()) {
        Post({.id = gone.id,
              .name = name,
              .designation = gone.config.designation,
              .status = kOk,
              .systemStatus = components_.SystemStatus()});
    }
}

bool CService::Post(const ComponentEvent& event) {
    return module_->Post([this, event](CAgent& agent) {
        isMailLost_ = false;
        delivery_.Deliver(agent, event);
        inbox_.Post([this, name = event.name, isLost = isMailLost_.load()] { OnTold(name, isLost); });
    });
}

void CService::OnTold(const std::string& name, bool isMailLost) {
    MarkPending();
    if (Component* component = components_.Find(name); component != nullptr && component->untold > 0) {
        --component->untold;
        component->isMailDue = isMailLost;
        store_.Keep(*component);
        reminders_.OnTold(*component, config_.reminder);
    }
    store_.Save();
    fleet_.Update();
}

void CService::MarkPending() {
    const auto pending = ledger_.Pending();
    for (Component& component : components_.All()) {
        const bool isPending =
            std::ranges::find(pending, component.config.name, &CLedger::Alert::name) != pending.end();
        if (std::exchange(component.isPending, isPending) != isPending) {
            store_.Keep(component);
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
            return delivery.Request(agent, MakeCommand(kAcknowledgeAlerts));
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
        Journal(3, std::string_view(print).substr(std::min(print.find_first_not_of('\n'), print.size())));
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
