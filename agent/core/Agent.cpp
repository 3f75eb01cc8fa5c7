// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Agent.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <utility>

#include "sip/SipJson.h"

namespace {

constexpr unsigned int kModuleId = 0x00010001;

struct Notification {
    unsigned int code;
    const char* name;
};

constexpr auto kNotifications = std::to_array<Notification>({
    {SCN_SWITCH_SHUTDOWN, "SCN_SWITCH_SHUTDOWN"},
    {SCN_SWITCH_REQUEST_ENABLED, "SCN_SWITCH_REQUEST_ENABLED"},
    {SCN_SYSTEM_SHUTDOWN, "SCN_SYSTEM_SHUTDOWN"},
    {SCN_POWERSTATE_SUSPEND, "SCN_POWERSTATE_SUSPEND"},
    {SCN_POWERSTATE_STANDBY, "SCN_POWERSTATE_STANDBY"},
    {SCN_POWERSTATE_RESUME, "SCN_POWERSTATE_RESUME"},
    {SCN_POWERSTATE_AC_OFFLINE, "SCN_POWERSTATE_AC_OFFLINE"},
    {SCN_POWERSTATE_AC_ONLINE, "SCN_POWERSTATE_AC_ONLINE"},
});

std::string NotificationName(unsigned int code) {
    const auto found = std::ranges::find(kNotifications, code, &Notification::code);
    return found != kNotifications.end() ? found->name : "code " + std::to_string(code);
}

// A text field of the properties record need not end with a zero.
template <std::size_t Size>
std::string FieldText(const char (&field)[Size]) {
    return {field, std::find(field, field + Size, '\0')};
}

}  // namespace

CAgent::CAgent(AgentSettings settings, const CAnswerTable& answers, CTranscript& transcript)
    : settings_(std::move(settings)),
      answers_(answers),
      transcript_(transcript),
      switch_(answers, transcript, settings_.runMode) {}

CAgent::~CAgent() {
    try {
        Unload();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: unloading failed: %s\n", program_invocation_short_name, error.what());
    } catch (...) {
        std::fprintf(stderr, "%s: unloading failed\n", program_invocation_short_name);
    }
}

bool CAgent::Load() {
    return OpenLibrary() && CreateModule() && StartModule();
}

bool CAgent::OpenLibrary() {
    std::string error;
    open_ = library_.Open(settings_.library, error);
    if (!Step("dlopen", open_, error)) {
        return false;
    }
    const bool found = library_.FindExports(error);
    if (!Step("dlsym", found, error)) {
        return false;
    }
    const char* name = library_.Name();
    return Step("EM_GetModuleName", name != nullptr, name != nullptr ? name : "");
}

bool CAgent::CreateModule() {
    const bool created = library_.Create(module_);
    return Step("EM_Create", created && module_ != nullptr) && ReadProperties() &&
           Step("SetServerCabinetNumber", module_->SetServerCabinetNumber(settings_.cabinet),
                std::to_string(settings_.cabinet));
}

bool CAgent::ReadProperties() {
    _ExtensionModuleProperties properties{};
    properties.size = sizeof(properties);
    const bool read = module_->GetProperties(properties);
    return Step("GetProperties", read,
                read ? FieldText(properties.moduleName) + ": " + FieldText(properties.moduleDescription) : "");
}

bool CAgent::StartModule() {
    started_ = module_->Start(&switch_, kModuleId);
    if (!Step("Start", started_)) {
        return false;
    }
    Notify(SCN_SWITCH_REQUEST_ENABLED);
    module_->OnSwitchStarted(nullptr);
    return Step("OnSwitchStarted", true);
}

bool CAgent::StopModule() {
    if (!started_.exchange(false)) {
        return true;
    }
    Notify(SCN_SWITCH_SHUTDOWN);
    return Step("Stop", module_->Stop());
}

void CAgent::Stop() {
    StopModule();
}

bool CAgent::Unload() {
    bool success = StopModule();
    if (std::exchange(module_, nullptr) != nullptr) {
        success = Step("EM_Delete", library_.Delete()) && success;
    }
    if (std::exchange(open_, false)) {
        success = CloseLibrary() && success;
    }
    switch_.Reset();
    return success;
}

bool CAgent::CloseLibrary() {
    std::string error;
    const bool closed = library_.Close(error);
    Step("dlclose", closed, error);
    const bool unmapped = !library_.IsMapped();
    return Step("unmapped", unmapped, unmapped ? "" : "the library is still in memory") && closed;
}

void CAgent::SendEvent(SipJson& message) {
    if (switch_.EventsEnabled()) {
        SendNotice(message);
    } else {
        WriteMessage("withheld", message);
    }
}

void CAgent::SendNotice(SipJson& message) {
    module_->ApplicationReply(message);
    WriteMessage("delivered", message);
}

bool CAgent::Request(SipJson& message) {
    const bool local = module_->ModuleRequest(message);
    WriteMessage("returned", message, local ? "true" : "false");
    return local;
}

void CAgent::Notify(unsigned int code) {
    const int result = module_->Notify(code, nullptr, nullptr);
    TranscriptEntry entry;
    entry.kind = "lifecycle";
    entry.step = "Notify";
    entry.result = std::to_string(result);
    entry.note = NotificationName(code);
    transcript_.Write(entry);
}

void CAgent::Work(std::chrono::milliseconds time) {
    WorkUntil(time, [] { return false; });
}

std::optional<Command> CAgent::Await(const TranscriptPattern& pattern, std::chrono::milliseconds time) {
    std::optional<Command> taken;
    WorkUntil(time, [&] { return (taken = transcript_.Take(pattern)).has_value(); });
    return taken;
}

bool CAgent::WorkUntil(std::chrono::milliseconds time, const std::function<bool()>& done) {
    const auto deadline = CTranscript::Clock::now() + time;
    for (;;) {
        const std::size_t count = transcript_.Count();  // before the look: what comes meanwhile ends the wait at once
        AnswerAsyncRequests();
        if (done()) {
            return true;
        }
        if (!transcript_.WaitForMore(count, deadline)) {
            return false;
        }
    }
}

void CAgent::AnswerAsyncRequests() {
    while (const auto request = switch_.TakeAsyncRequest()) {
        const std::string text = answers_.Answer(request->text, request->commandIndex).text;
        SipJson answer;
        if (!answer.Parse(text.data(), text.size())) {
            throw CAgentError(
                "the answer to an asynchronous request is nested too deeply, or holds what is no character");
        }
        answer.SetCmdIndex(request->commandIndex);
        SendNotice(answer);
    }
}

bool CAgent::Step(const char* step, bool result, const std::string& note) {
    TranscriptEntry entry;
    entry.kind = "lifecycle";
    entry.step = step;
    entry.result = result ? "true" : "false";
    entry.note = note;
    transcript_.Write(entry);
    if (!result) {
        std::fprintf(stderr, "%s: %s failed%s%s\n", program_invocation_short_name, step, note.empty() ? "" : ": ",
                     note.c_str());
    }
    return result;
}

void CAgent::WriteMessage(const char* kind, const SipJson& message, const std::string& result) {
    TranscriptEntry entry;
    entry.kind = kind;
    entry.message = MessageText(message);
    entry.command = CurrentCommand(entry.message, message.GetCmdIndex());
    entry.result = result;
    transcript_.Write(entry);
}
