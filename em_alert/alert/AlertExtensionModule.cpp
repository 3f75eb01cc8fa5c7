// SPDX-License-Identifier: Apache-2.0
#include "em_alert/alert/AlertExtensionModule.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "em_alert/EmAlert.h"
#include "em_alert/frame/ModuleInstance.h"
#include "em_alert/values/ControllerMailServers.h"
#include "mail/texts/DateTime.h"
#include "platform/Cancellation.h"
#include "platform/diagnostics/Trace.h"

namespace {

constexpr unsigned int kTaskLevels = 1;
constexpr std::size_t kTaskQueueBytes = 800;

void TraceBanner() {
    EM_TRACE(1, "\n\n------------------------------------------------------------------------------------------");
}

void TraceRule() {
    EM_TRACE(1, "\n------------------------------------------------------------------------------------------\n");
}

template <std::size_t size>
void SetText(char (&field)[size], const char* text) {
    std::memset(field, 0, size);
    std::snprintf(field, size, "%s", text);
}

/// For a handler of exceptions: memory may be what has run out.
void TrySetStatus(SipJson& message, unsigned int status) noexcept {
    const CCancellationPause pause;
    try {
        message.SetStatus(status);
    } catch (...) {
        EM_TRACE(1, "\nEM_ALERT            : ## EXCEPTION while setting status %d! ##", static_cast<int>(status));
    }
}

std::string OrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

}  // namespace

CAlertExtensionModule::CAlertExtensionModule()
    : CTaskSerializer<SipJson>(kTaskLevels, kTaskQueueBytes),
      requests_(link_, pendingAlerts_, beeper_, mailSettings_,
                [this](SipJson& request) { return InsertTask(request, 0, nullptr); }) {}

CAlertExtensionModule::~CAlertExtensionModule() {
    // The worker runs this class's OnTaskExecution; a module that nobody stopped must not lose its members under it.
    stopping_ = true;
    TerminateSerialization();
}

bool CAlertExtensionModule::GetProperties(_ExtensionModuleProperties& properties) {
    if (properties.size < sizeof properties) {
        return false;
    }
    properties.capabilities |= 0x03;
    properties.capabilities2 |= 0x03;
    properties.property26 = 100;
    properties.property42 = 2;
    SetText(properties.moduleName, GetName());
    std::fill(std::begin(properties.reservedText), std::end(properties.reservedText), std::uint8_t{0});
    properties.reserved142 = 0;
    properties.reserved144 = 0;
    properties.reserved145 = 0;
    SetText(properties.moduleDescription, "Alert handling module");
    properties.reserved242 = 0;
    properties.reserved244 = 0;
    properties.reserved245 = 0;
    return true;
}

const char* CAlertExtensionModule::GetName() const {
    return GetModuleName();
}

bool CAlertExtensionModule::Start(CISwitch* agent, unsigned int moduleId) {
    TraceBanner();
    EM_TRACE(1, "\n### Starting module %s ###\n", GetName());
    stopping_ = false;
    beeper_.Open();
    CExtensionModule::Start(agent, moduleId);
    EM_TRACE(1, "\n\n### Start of module %s completed successfully ###", GetName());
    TraceRule();
    return true;
}

void CAlertExtensionModule::OnSwitchStarted(void* parameter) {
    TraceBanner();
    EM_TRACE(1, "\nEM_ALERT            : ## OnSwitchStarted()\n");
    CExtensionModule::OnSwitchStarted(parameter);
    try {
        LoadConfiguration();
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1, "\nEM_ALERT            : ERROR! Exception while loading the configuration!");
    }
    StartSerialization();
    EnableEvents(true);
    EM_TRACE(1, "\n\nEM_ALERT            : ## OnSwitchStarted() finished");
    TraceRule();
}

bool CAlertExtensionModule::Stop() {
    TraceBanner();
    EM_TRACE(1, "\n### Stopping module %s ###\n", GetName());
    stopping_ = true;
    TerminateSerialization();
    beeper_.Close();
    const bool isStopped = CExtensionModule::Stop();
    EM_TRACE(1, "\n\n### Stop of module %s completed successfully ###", GetName());
    TraceRule();
    return isStopped;
}

void CAlertExtensionModule::LoadConfiguration() {
    LoadSettings(SettingRow::Load::First);
    mailSettings_.ImportWhenMissing();
    ReadAlerterSmtpSettings();
    LoadSettings(SettingRow::Load::AfterMailServers);
}

void CAlertExtensionModule::LoadSettings(SettingRow::Load when) {
    for (const SettingRow& row : SettingTable()) {
        if (SipJson answer; row.load == when && link_.RequestSetting(row.id, answer)) {
            row.takeLoaded(row, {settings_, beeper_}, answer);
        }
    }
}

void CAlertExtensionModule::ApplicationReply(SipJson& message) {
    EM_TRACE(3, "\nEM_ALERT            :   -> ApplicationReply()");
    if (stopping_) {
        EM_TRACE(2, "\nEM_ALERT            : The module is stopped - message ignored");
    } else {
        TakeReply(message);
    }
    EM_TRACE(3, "\nEM_ALERT            :   <- ApplicationReply()");
}

void CAlertExtensionModule::TakeReply(SipJson& message) {
    const unsigned int opCode = message.GetElem("OC");
    try {
        TraceReply(message, 2);
        if (opCode == CM_StatusTreeComponentInstanceStatus || opCode == CM_UmServerUpdateAlert) {
            ProcessAlertTrigger(message);
        } else if (opCode == kWriteConfigurationValue) {
            FollowSetting({settings_, beeper_}, message);
        }
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1, "\n\nEM_ALERT (REPLY)    : CABINET %04d: FATAL ERROR! EXCEPTION in Reply Handler OpCode 0x%04X!",
                 static_cast<int>(message.GetElem("CA")), opCode);
    }
}

bool CAlertExtensionModule::ModuleRequest(SipJson& message) {
    try {
        TraceRequestIn(message, 2);
        message.SetStatus(kValueNotAvailable);
        if (!IsLocalServerRequest(message)) {
            message.SetStatus(kNotForLocalServer);
            return false;
        }
        requests_.Answer(message);
    } catch (...) {
        LetCancellationPass();
        TrySetStatus(message, kException);
        EM_TRACE(1, "\nEM_ALERT (REQUEST)  : ## EXCEPTION! CABID %04d: OpCode 0x%04X-0x%04X ObjId 0x%04X Status 0x%02X",
                 static_cast<int>(message.GetElem("CA")), message.GetElem("OC"), message.GetElem("OE"),
                 message.GetElem("OI"), static_cast<unsigned int>(kException));
    }
    TraceRequestOut(message, 2);
    return true;
}

/// Carries a queued request out and answers it. Runs on the worker, one task at a time.
void CAlertExtensionModule::OnTaskExecution(SipJson& request, _TaskPriority /*priority*/) {
    try {
        tasks_.Execute(request);
    } catch (...) {  // the requester waits for an answer
        LetCancellationPass();
        TrySetStatus(request, kException);
        ReplySip(request);
        throw;
    }
    ReplySip(request);
}

bool CAlertExtensionModule::ContainsVariableName(CLumeString& text, const char* name) {
    return CAlertMailTexts::ContainsVariableName(text, name);
}

std::string& CAlertExtensionModule::SystemStatusToString(std::string& out, unsigned char status) {
    return out = mailer_.Texts().SystemStatusWord(status);
}

std::string& CAlertExtensionModule::ComponentStatusToString(std::string& out, unsigned char status) {
    return out = mailer_.Texts().ComponentStatusWord(status);
}

void CAlertExtensionModule::SetDateTimeLocale(unsigned short languageId) {
    SetTimeLocale(languageId);
}

bool CAlertExtensionModule::AlerterFormatText(CLumeString& text) {
    mailer_.Texts().FormatText(text);
    return true;
}

// NOLINTBEGIN(performance-unnecessary-value-param): the signature is given
bool CAlertExtensionModule::AlerterFormatSystemStatusText(CLumeString& text, unsigned char systemStatus,
                                                          unsigned char componentStatus, std::string componentName,
                                                          std::string componentDesignation) {
    // NOLINTEND(performance-unnecessary-value-param)
    mailer_.Texts().FormatSystemStatusText(text, systemStatus, componentStatus, componentName, componentDesignation);
    return true;
}

bool CAlertExtensionModule::AlerterFormatUpdateStatusText(CLumeString& text, const CLogMsgArguments& arguments) {
    mailer_.Texts().FormatUpdateStatusText(text, arguments);
    return true;
}

bool CAlertExtensionModule::AlerterCreateSystemStatusMail(CSmtpMessage& mail, unsigned char systemStatus,
                                                          unsigned char componentStatus, const char* componentName,
                                                          const char* componentDesignation) {
    mailer_.Texts().CreateSystemStatusMail(mail, systemStatus, componentStatus, OrEmpty(componentName),
                                           OrEmpty(componentDesignation));
    return true;
}

bool CAlertExtensionModule::AlerterCreateUpdateStatusMail(CSmtpMessage& mail, const CLogMsgArguments& arguments) {
    mailer_.Texts().CreateUpdateStatusMail(mail, arguments);
    return true;
}

void CAlertExtensionModule::ImportZelconSmtpSettings(SmtpSettingsMap& map) {
    ImportControllerMailServers(link_, map);
}
