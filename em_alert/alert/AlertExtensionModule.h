// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <string>

#include "em_alert/alert/AlertBeeper.h"
#include "em_alert/alert/AlertMailer.h"
#include "em_alert/alert/AlertPolicy.h"
#include "em_alert/alert/AlertRequests.h"
#include "em_alert/alert/AlertTasks.h"
#include "em_alert/alert/AlertTrigger.h"
#include "em_alert/alert/PendingAlerts.h"
#include "em_alert/alert/SettingTable.h"
#include "em_alert/frame/ExtensionModuleBase.h"
#include "em_alert/values/AgentLink.h"
#include "em_alert/values/AlertSettings.h"
#include "em_alert/values/NotificationSettings.h"
#include "sip/SipJson.h"
#include "tasks/TaskSerializer.h"

/// The alert module: turns the agent's status events into pending alerts, beeps and mails, and answers the agent's
/// requests about them. It only wires: each concern is an object with a header of its own, and the operations below
/// pass on to them.
///
/// Threads: the agent calls on its own threads, several at a time; the task serializer's worker runs OnTaskExecution.
/// What they share lives in types with a lock of their own. Mails are composed and sent with no lock held.
class CAlertExtensionModule : public CExtensionModule, public CTaskSerializer<SipJson> {
public:
    using AlerterSeverity = ::AlerterSeverity;
    using enum ::AlerterSeverity;
    using SmptSettings = ::SmptSettings;

    CAlertExtensionModule();
    ~CAlertExtensionModule() override;
    CAlertExtensionModule(const CAlertExtensionModule&) = delete;
    CAlertExtensionModule& operator=(const CAlertExtensionModule&) = delete;

    bool GetProperties(_ExtensionModuleProperties& properties) override;
    bool DetectHardware() override { return true; }

    /// Always succeeds, whatever the base says.
    bool Start(CISwitch* agent, unsigned int moduleId) override;

    /// Stops the worker, whose queued tasks are dropped, and the beep; a mail that is being sent is broken off.
    /// Settings and pending alerts stay, and requests about them are still answered; events are ignored from here on.
    bool Stop() override;

    /// Loads the configuration, then starts the worker and enables events: no event meets an unconfigured module.
    void OnSwitchStarted(void* parameter) override;
    const char* GetName() const override;

    void ApplicationReply(SipJson& message) override;
    bool ModuleRequest(SipJson& message) override;

    // Events (AlertTrigger.h, AlertPolicy.h)

    void ProcessAlertTrigger(SipJson& event) { trigger_.Process(event); }
    static AlerterSeverity SystemStatusToAlertSeverity(unsigned char status) {
        return CAlertPolicy::OfSystemStatus(status);
    }
    static AlerterSeverity LogMsgSeverityToAlertSeverity(unsigned char severity) {
        return CAlertPolicy::OfLogMessage(severity);
    }

    // Pending alerts (PendingAlerts.h, AlertRequests.h)

    bool IsAlertPending() const { return pendingAlerts_.IsAnyPending(); }
    void AddPendingAlert(SipJson& event) { pendingAlerts_.Add(event); }
    bool GetLastPendingAlert(SipJson& out) { return pendingAlerts_.GetNewest(out); }
    void ClearPendingAlerts() { pendingAlerts_.Clear(); }

    /// @return true
    bool AcknowledgeAlert(SipJson& /*request*/) { return requests_.Acknowledge(), true; }

    // Beep sequences (AlertBeeper.h)

    bool BeepSequenceOn(AlerterSeverity severity) { return beeper_.SequenceOn(severity); }
    void BeepSequenceOff() { beeper_.SequenceOff(); }

    // Mail texts (mail/texts/AlertMailTexts.h); true: the text is ready to be used, the mail to be sent

    static bool ContainsVariableName(CLumeString& text, const char* name);
    std::string& SystemStatusToString(std::string& out, unsigned char status);
    std::string& ComponentStatusToString(std::string& out, unsigned char status);
    static void SetDateTimeLocale(unsigned short languageId);
    bool AlerterFormatText(CLumeString& text);
    bool AlerterFormatSystemStatusText(CLumeString& text, unsigned char systemStatus, unsigned char componentStatus,
                                       std::string componentName, std::string componentDesignation);
    bool AlerterFormatUpdateStatusText(CLumeString& text, const CLogMsgArguments& arguments);
    bool AlerterCreateSystemStatusMail(CSmtpMessage& mail, unsigned char systemStatus, unsigned char componentStatus,
                                       const char* componentName, const char* componentDesignation);
    bool AlerterCreateUpdateStatusMail(CSmtpMessage& mail, const CLogMsgArguments& arguments);

    // Mail dispatch (NotificationSettings.h, ControllerMailServers.h, AlertMailer.h)

    /// Reads the two mail servers, the sender and the recipients from the notification file.
    void ReadAlerterSmtpSettings() { mailSettings_.Read(); }

    /// Adds the mail servers of the baseboard management controller. No flow of the module calls it.
    void ImportZelconSmtpSettings(SmtpSettingsMap& map);
    int AlerterSendMail(const CSmtpMessage& mail) { return mailer_.Send(mail); }

protected:
    void OnTaskExecution(SipJson& request, _TaskPriority priority) override;

private:
    void TakeReply(SipJson& message);
    void LoadConfiguration();
    void LoadSettings(SettingRow::Load when);

    std::atomic<bool> stopping_{};
    CAgentLink link_{*this};
    CAlertSettingsStore settings_;
    CNotificationSettings mailSettings_;
    CPendingAlerts pendingAlerts_{link_};
    CAlertBeeper beeper_{settings_, pendingAlerts_};
    CAlertMailer mailer_{link_, settings_, mailSettings_, stopping_};
    CAlertTrigger trigger_{link_, settings_, pendingAlerts_, beeper_, mailer_};
    CAlertRequests requests_;
    CAlertTasks tasks_{mailer_, mailSettings_};
};
