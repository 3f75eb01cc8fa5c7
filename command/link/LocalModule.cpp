// SPDX-License-Identifier: Apache-2.0
#include "command/link/LocalModule.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <future>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "agent/settings/DefaultAnswers.h"
#include "agent/traces/ModuleTraces.h"
#include "agent/traces/TraceSink.h"
#include "command/link/KeptSettings.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

namespace {

using std::chrono::milliseconds;

// How soon a signal ends the wait for an answer, and what has happened meanwhile is shown.
constexpr milliseconds kInterval{100};
// Long enough for a quick answer to be seen before the next prompt.
constexpr milliseconds kSettleTime{50};

// For what the module does on its own, and for what fails; the commands tell the rest themselves.
bool ConcernsOperator(const TranscriptEntry& entry) {
    constexpr std::array<std::string_view, 5> kKinds = {"event", "reply", "tone", "forward-event", "withheld"};
    return std::ranges::find(kKinds, entry.kind) != kKinds.end() ||
           (entry.kind == "lifecycle" && entry.result == "false");
}

}  // namespace

CLocalModule::CLocalModule(LocalModuleOptions options, std::function<void(const std::string&)> tell)
    : options_(std::move(options)),
      tell_(std::move(tell)),
      transcript_(options_.transcript, options_.story,
                  [this](const TranscriptEntry& entry, const std::string& sentence) { OnEntry(entry, sentence); }) {
    LoadAnswers();
}

CLocalModule::~CLocalModule() {
    Unload();
}

void CLocalModule::LoadAnswers() {
    if (options_.answers.empty()) {
        SetDefaultAnswers(answers_);
    } else {
        answers_.Load(options_.answers);
    }
    if (options_.settingsFile && !options_.settingsFile->empty()) {
        for (const Command& answer : CKeptSettings(*options_.settingsFile).Read()) {
            answers_.Set(answer);
        }
    }
}

void CLocalModule::KeepSetting(const Command& answer) const {
    if (!options_.settingsFile) {
        return;
    }
    if (options_.settingsFile->empty()) {
        throw CAgentError("there is no place to keep the setting, which is not changed: say where with --state DIR");
    }
    CKeptSettings(*options_.settingsFile).Change(answer);
}

void CLocalModule::OnEntry(const TranscriptEntry& entry, const std::string& sentence) {
    if (entry.kind == "event") {
        ledger_.OnModuleEvent(entry.command);
    }
    if (options_.story || ConcernsOperator(entry)) {
        tell_(sentence);
    }
}

void CLocalModule::Load() {
    if (agent_ != nullptr) {
        return;
    }
    if (!options_.wav.empty() || !options_.portLog.empty() ||
        (options_.speaks && ::access("/dev/pci/smbus", F_OK) != 0)) {
        speaker_ = std::make_unique<CBusIoDriver>(BusIoDriverOptions{
            .wavFile = options_.wav, .portLogFile = options_.portLog, .onTone = [this](const std::string& tone) {
                TranscriptEntry entry;
                entry.kind = "tone";
                entry.note = tone;
                transcript_.Write(entry);
            }});
    }
    agent_ = std::make_unique<CAgent>(options_.agent, answers_, transcript_);
    const unsigned long before = record_.Count();
    const bool isLoaded = agent_->Load();
    hearsModule_ = record_.Count() != before;
    if (!isLoaded) {
        Unload();
        failed_ = true;
        throw CAgentError("the module " + options_.agent.library + " could not be loaded and started");
    }
}

bool CLocalModule::Unload() {
    if (agent_ != nullptr) {
        failed_ = !agent_->Unload() || agent_->HasFailed() || !transcript_.IsComplete() || failed_;
        agent_.reset();
        speaker_.reset();
        late_.clear();
    }
    return !failed_;
}

void CLocalModule::Reload(unsigned traceLevel) {
    Unload();
    ledger_.OnRestart();
    ReplaceTraceLevel(traceLevel);  // the module's threads have ended
    Load();
}

void CLocalModule::Settle() {
    if (agent_ != nullptr) {
        agent_->Work(kSettleTime);
    }
}

ModuleAnswer CLocalModule::Ask(Command request) {
    Load();
    request.ca = agent_->Cabinet();
    TranscriptPattern reply{.kind = "reply", .step = {}, .command = MakeCommand(*request.oc)};
    reply.command.oe.reset();
    std::size_t& late = late_[*request.oc];
    while (agent_->Await(reply, milliseconds(0))) {
        late -= late > 0 ? 1 : 0;
    }
    record_.Clear();
    SipJson message;
    BuildMessage(request, message);
    agent_->Request(message);
    Command answer = CurrentCommand(MessageText(message), message.GetCmdIndex());
    if (answer.st != kAnswerFollows) {
        return {.command = answer, .traces = record_.Get()};
    }
    const auto deadline = CTranscript::Clock::now() + std::chrono::seconds(kLongestAnswerSeconds);
    while (CTranscript::Clock::now() < deadline) {
        const auto found = agent_->Await(reply, kInterval);
        if (found && late == 0) {
            return {.command = *found, .traces = record_.Get()};
        }
        if (found) {
            --late;
            record_.Clear();
        } else if (!GoesOn(record_.Get())) {
            ++late;
            throw CBrokenOff();
        }
    }
    ++late;
    throw CAgentError("the module has not answered within " + std::to_string(kLongestAnswerSeconds) + " seconds");
}

void CLocalModule::ChangeSetting(std::uint32_t id, const std::string& data) {
    const Command answer = MakeCommand(kReadConfigurationValue, id, data);
    KeepSetting(answer);  // first: what cannot be kept does not hold in a console either
    answers_.Set(answer);
    if (agent_ == nullptr) {
        return;
    }
    Command notice = answer;
    notice.oc = kWriteConfigurationValue;
    notice.ca = agent_->Cabinet();
    SipJson message;
    BuildMessage(notice, message);
    agent_->SendNotice(message);
}

std::uint32_t CLocalModule::ComponentId(const std::string& name) {
    auto found = std::ranges::find(components_, name);
    if (found == components_.end()) {
        found = components_.insert(found, name);
    }
    return static_cast<std::uint32_t>(found - components_.begin()) + 1;
}

Traces CLocalModule::WaitFor(const std::function<void()>& work) {
    const std::future<void> done = std::async(std::launch::async, work);
    bool goesOn = true;
    while (done.wait_for(kInterval) != std::future_status::ready) {
        const bool wentOn = std::exchange(goesOn, GoesOn(record_.Get()));
        // An interrupt says no once: of the module's work nothing can be broken off. Who wants the end keeps saying no.
        if (!wentOn && !goesOn) {
            agent_->Stop();
        }
    }
    return record_.Get();
}

Traces CLocalModule::Deliver(const std::string& name, const std::string& designation, std::uint32_t status) {
    Load();
    const std::string number = std::to_string(status);
    const std::uint32_t component = ComponentId(name);
    answers_.Set(MakeObjectCommand(kReadSystemStatus, 0, number));
    answers_.Set(MakeObjectCommand(kReadComponentName, component, JsonString(name)));
    answers_.Set(MakeObjectCommand(kReadComponentDesignation, component, JsonString(designation)));

    Command event = MakeObjectCommand(CM_StatusTreeComponentInstanceStatus, component, number);
    event.ca = agent_->Cabinet();
    event.st = kEvent;
    SipJson message;
    BuildMessage(event, message);
    record_.Clear();
    ledger_.BeginEvent(component, name, designation, status);
    Traces traces = WaitFor([&] { agent_->SendEvent(message); });
    ledger_.EndEvent(status);
    for (const std::string& print : traces) {
        if (const auto code = MailReturnCode(print)) {
            ledger_.OnMail(*code == 0);
        }
    }
    return traces;
}

std::size_t CLocalModule::Acknowledge() {
    const std::size_t pending = ledger_.Pending().size();
    const Command answer = Ask(MakeCommand(kAcknowledgeAlerts)).command;
    if (answer.st != kDone) {
        throw CAgentError("the module did not acknowledge the pending alerts");
    }
    return pending;
}
