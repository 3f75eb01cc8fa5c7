// SPDX-License-Identifier: Apache-2.0
#include "em_alert/frame/ExtensionModuleBase.h"

#include <algorithm>
#include <iterator>

#include "em_alert/frame/ModuleInstance.h"
#include "platform/diagnostics/Trace.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

namespace {

enum RunMode : unsigned int {
    kAgentlessService = 5,
    kUpdateManagement = 8,
    kAgentlessUpdateManagement = 10,
};

struct Notification {
    unsigned int code;
    const char* name;
    const char* meaning{};
    unsigned int level{};  // of the meaning's trace
};

/// Those that are announced and have no effect here.
constexpr Notification kAnnounced[] = {
    {SCN_SWITCH_REQUEST_ENABLED, "SCN_SWITCH_REQUEST_ENABLED",
     "SWITCH start completed (all layers started) - requests enabled", 3},
    {SCN_SYSTEM_SHUTDOWN, "SCN_SYSTEM_SHUTDOWN", "System shutdown", 2},
    {SCN_POWERSTATE_SUSPEND, "SCN_POWERSTATE_SUSPEND"},
    {SCN_POWERSTATE_STANDBY, "SCN_POWERSTATE_STANDBY"},
    {SCN_POWERSTATE_RESUME, "SCN_POWERSTATE_RESUME"},
    {SCN_POWERSTATE_AC_OFFLINE, "SCN_POWERSTATE_AC_OFFLINE"},
    {SCN_POWERSTATE_AC_ONLINE, "SCN_POWERSTATE_AC_ONLINE"},
};

}  // namespace

bool CExtensionModule::GetProperties(_ExtensionModuleProperties& /*properties*/) {
    return false;
}

bool CExtensionModule::DetectHardware() {
    return true;
}

bool CExtensionModule::Start(CISwitch* agent, unsigned int moduleId) {
    switch_ = agent;
    moduleIdLow_ = static_cast<std::uint16_t>(moduleId);
    moduleIdHigh_ = static_cast<std::uint16_t>(moduleId >> 16);
    EM_TRACE(4, "\n%-20s: Register event log source \"%s\" ...", GetName(), GetSysLogName());
    // The agent sees the run mode asked for whether or not anything is traced.
    const char* source = GetSysLogName();
    EM_TRACE(4, "\n%-20s: ... event log source \"%s\" registered", GetName(), source);
    return true;
}

bool CExtensionModule::Stop() {
    return true;
}

void CExtensionModule::OnSwitchStarted(void* /*parameter*/) {}

void CExtensionModule::ApplicationReply(SipJson& /*message*/) {}

bool CExtensionModule::ModuleRequest(SipJson& message) {
    message.SetStatus(kNotHandled);
    return false;
}

bool CExtensionModule::CommandToDevice(SipJson& /*message*/) {
    return false;
}

bool CExtensionModule::SetServerCabinetNumber(unsigned int number) {
    moduleInstance.serverCabinetNumber = number;
    moduleInstance.serverCabinetNumberKnown = true;
    EM_TRACE(2, "\n\n%-20s: ## Server cabinet number = %d ##\n", GetName(), static_cast<int>(number));
    return true;
}

unsigned int CExtensionModule::ServerCabinetNumber() {
    return moduleInstance.serverCabinetNumber;
}

bool CExtensionModule::GetServerSeList(unsigned int** /*list*/, unsigned char& /*count*/) {
    return false;
}

bool CExtensionModule::SetServerSeList(unsigned int* /*list*/, unsigned char /*count*/) {
    return false;
}

const char* CExtensionModule::GetName() const {
    return "EM_XXX";
}

void CExtensionModule::ModuleAttached(_CMD_MODULEID& /*module*/) {}

void CExtensionModule::ModuleDetached(_CMD_MODULEID& /*module*/) {}

void CExtensionModule::ClientAttached(unsigned int /*client*/) {}

void CExtensionModule::ClientDetached(unsigned int /*client*/) {}

bool CExtensionModule::GetServerCabinetNumber(unsigned int& /*number*/) {
    return false;
}

bool CExtensionModule::CommandToDevice(unsigned int /*opCode*/, unsigned int /*opCodeExt*/, unsigned int /*objectId*/,
                                       unsigned int /*cabinetId*/, const unsigned char* /*data*/,
                                       unsigned int /*dataSize*/) {
    return false;
}

bool CExtensionModule::CommandToSe(SipJson& /*message*/, unsigned int /*se*/, unsigned int /*cabinetId*/) {
    return false;
}

bool CExtensionModule::CommandToSe(unsigned int /*opCode*/, unsigned int /*opCodeExt*/, unsigned int /*objectId*/,
                                   unsigned int /*cabinetId*/, const unsigned char* /*data*/, unsigned int /*dataSize*/,
                                   unsigned int /*se*/, unsigned int /*seCabinetId*/) {
    return false;
}

int CExtensionModule::OnModuleNotification(unsigned int /*code*/, void* /*parameter1*/, void* /*parameter2*/) {
    return 0;
}

bool CExtensionModule::ReplySip(SipJson& message) {
    return switch_ != nullptr && switch_->DeliverMessage(this, message);
}

bool CExtensionModule::ModuleReply(SipJson& message) {
    return ReplySip(message);
}

bool CExtensionModule::EnableEvents(bool enable) {
    return switch_ != nullptr && switch_->EnableEvents(this, enable);
}

bool CExtensionModule::DisableEvents() {
    return switch_ != nullptr && switch_->DisableEvents(this);
}

unsigned int CExtensionModule::GetRunMode() const {
    return switch_ == nullptr ? 0 : switch_->GetRunMode();
}

bool CExtensionModule::IsAgentlessMode() const {
    const unsigned int mode = GetRunMode();
    return mode == kAgentlessService || mode == kAgentlessUpdateManagement;
}

bool CExtensionModule::IsUMEMode() const {
    return (GetRunMode() & ~2U) == kUpdateManagement;
}

const char* CExtensionModule::GetSysLogName() const {
    // An agentless service that manages updates as well keeps the server control's name.
    return GetRunMode() == kAgentlessService ? "Hostwarden Agentless Service" : "Hostwarden Server Control";
}

int CExtensionModule::Notify(unsigned int code, void* parameter1, void* parameter2) {
    EM_TRACE(2, "\n\n%-20s: ## NOTIFY: Code = 0Xx%02X, param = 0x%08X", GetName(), code,
             static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(parameter1)));
    const auto* known = std::ranges::find(kAnnounced, code, &Notification::code);
    if (code == SCN_SWITCH_SHUTDOWN) {
        EM_TRACE(1, "\n%-20s: *** SCN_SWITCH_SHUTDOWN *** \n", GetName());
        EM_TRACE(3, "\n%-20s: -> SWITCH shutdown notification, set SwitchShutdown flag", GetName());
        switchShutdown_ = true;
    } else if (known != std::end(kAnnounced)) {
        EM_TRACE(1, "\n%-20s: *** %s *** \n", GetName(), known->name);
        if (known->meaning != nullptr) {
            EM_TRACE(known->level, "\n%-20s: -> %s", GetName(), known->meaning);
        }
    }
    EM_TRACE(4, "\n%-20s:   call OnModuleNotification()...", GetName());
    const int result = OnModuleNotification(code, parameter1, parameter2);
    EM_TRACE(4, "\n%-20s:   ... OnModuleNotification() completed", GetName());
    return result;
}
