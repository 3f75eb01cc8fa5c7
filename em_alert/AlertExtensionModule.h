#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "devices/BeepPlayer.h"
#include "em_alert/AlertSettings.h"
#include "em_alert/ExtensionModuleBase.h"
#include "em_alert/NotificationSettings.h"
#include "em_alert/OperationCodes.h"
#include "em_alert/PendingAlerts.h"
#include "mail/AlertMailTexts.h"
#include "platform/Mutex.h"
#include "sip/SipJson.h"
#include "tasks/TaskSerializer.h"

/// The alert module: turns the agent's status events into pending alerts, beeps and mails, and answers the agent's
/// requests about them. Each concern has its own source file, named in the groups below.
///
/// Threads: the agent calls on its own threads, several at a time; the task serializer's worker runs OnTaskExecution.
/// What they share lives in types with a lock of their own (settings, pending alerts, mail settings).
/// Mails are composed and sent with no lock held.
class CAlertExtensionModule : public CExtensionModule, public CTaskSerializer<SipJson>, private CIAgentValues {
public:
    enum AlerterSeverity : unsigned int {
        AlerterSeverityUnknown = 0,  ///< refused by beep and mail, with an error trace
        AlerterSeverityOk = 1,       ///< clears the pending alerts, stops a beep sequence
        AlerterSeverityWarning = 2,
        AlerterSeverityError = 3,
    };

    using SmptSettings = ::SmptSettings;

    // Life cycle (AlertExtensionModule.cpp)

    CAlertExtensionModule();
    ~CAlertExtensionModule() override;
    CAlertExtensionModule(const CAlertExtensionModule&) = delete;
    CAlertExtensionModule& operator=(const CAlertExtensionModule&) = delete;

    bool GetProperties(_ExtensionModuleProperties& properties) override;
    bool DetectHardware() override;

    /// Always succeeds, whatever the base says.
    bool Start(CISwitch* agent, unsigned int moduleId) override;

    /// Stops the worker, whose queued tasks are dropped, and the beep; a mail that is being sent is broken off.
    /// Settings and pending alerts stay, and requests about them are still answered; events are ignored from here on.
    bool Stop() override;

    /// Loads the configuration, then starts the worker and enables events: no event meets an unconfigured module.
    void OnSwitchStarted(void* parameter) override;
    const char* GetName() const override;

    // Configuration notices and events (ConfigurationReplies.cpp)

    void ApplicationReply(SipJson& message) override;

    // Requests (ModuleRequests.cpp)

    bool ModuleRequest(SipJson& message) override;

    // Alert triggers (AlertTrigger.cpp)

    /// Decides what a status or update event causes: pending alert, beep, mail. Runs on the delivering thread, mail
    /// included.
    void ProcessAlertTrigger(SipJson& event);
    static AlerterSeverity SystemStatusToAlertSeverity(unsigned char status);
    static AlerterSeverity LogMsgSeverityToAlertSeverity(unsigned char severity);

    // Pending alerts (PendingAlertOperations.cpp)

    bool IsAlertPending() const;

    /// Keeps a copy of the event and announces it (0x2240), both under the list's lock.
    void AddPendingAlert(SipJson& event);
    bool GetLastPendingAlert(SipJson& out);
    void ClearPendingAlerts();

    /// Clears the list, stops the beep and announces it (0x2241); does nothing when no alert is pending.
    /// @return true
    bool AcknowledgeAlert(SipJson& request);

    // Beep sequences (BeepSequences.cpp)

    /// Plays the severity's sequence, endlessly, instead of whatever plays now.
    /// @return false when nothing was started
    bool BeepSequenceOn(AlerterSeverity severity);

    /// Stops a sequence; the tone that sounds is played to its end first.
    void BeepSequenceOff();

    // Mail texts (MailTexts.cpp)

    static bool ContainsVariableName(CLumeString& text, const char* name);
    std::string& SystemStatusToString(std::string& out, unsigned char status);
    std::string& ComponentStatusToString(std::string& out, unsigned char status);
    static void SetDateTimeLocale(unsigned short languageId);

    /// @return true: the text is ready to be used
    bool AlerterFormatText(CLumeString& text);
    bool AlerterFormatSystemStatusText(CLumeString& text, unsigned char systemStatus, unsigned char componentStatus,
                                       std::string componentName, std::string componentDesignation);
    bool AlerterFormatUpdateStatusText(CLumeString& text, const CLogMsgArguments& arguments);

    /// @return true: the mail is ready to be sent
    bool AlerterCreateSystemStatusMail(CSmtpMessage& mail, unsigned char systemStatus, unsigned char componentStatus,
                                       const char* componentName, const char* componentDesignation);
    bool AlerterCreateUpdateStatusMail(CSmtpMessage& mail, const CLogMsgArguments& arguments);

    // Mail dispatch (MailDispatch.cpp)

    /// Reads the two mail servers, the sender and the recipients from the notification file.
    void ReadAlerterSmtpSettings();

    /// Adds the mail servers of the baseboard management controller. No flow of the module calls it.
    void ImportZelconSmtpSettings(SmtpSettingsMap& map);

    /// Tries the mail servers in key order until one accepts the mail.
    /// @return 0 on success, the last server's libcurl code, or -1 when none was tried
    int AlerterSendMail(const CSmtpMessage& mail);

protected:
    void OnTaskExecution(SipJson& request, _TaskPriority priority) override;

private:
    static constexpr unsigned int kRequestTimeout = 5000;  // ms
    static constexpr unsigned int kTaskLevels = 1;
    static constexpr std::size_t kTaskQueueBytes = 800;

    // Requests to the agent (ConfigurationLoad.cpp); CIAgentValues is what the mail texts ask through.
    bool RequestText(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId, std::string& text) override;
    bool RequestNumber(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId,
                       unsigned int& number) override;
    bool RequestMessageTemplate(std::uint32_t errorCode, std::string& messageTemplate) override;

    // Configuration (ConfigurationLoad.cpp, ConfigurationReplies.cpp)
    void LoadConfiguration();
    void LoadSettings(SettingRow::Load when);
    void LoadSetting(const SettingRow& row);
    void FollowSetting(const SipJson& notice);
    void FollowBeepSwitch(const SettingRow& row, const SettingValue& value);
    void FollowSequence(SettingRow::Sequence field, const SipJson& notice);

    // Alert triggers (AlertTrigger.cpp)
    void ProcessComponentStatus(SipJson& event);
    bool FollowPendingAlerts(SipJson& event, AlerterSeverity severity);
    void BeepForAlert(AlerterSeverity severity, bool isKept);
    void BeepWhilePending(AlerterSeverity severity) EM_REQUIRES(beepLock_);
    void StopBeepWhenNonePends();
    void MailSystemStatus(const SipJson& event, unsigned char systemStatus, unsigned int leastComponentStatus);
    void SendSystemStatusMail(const SipJson& event, unsigned char systemStatus, unsigned int componentStatus);
    void ProcessUpdateAlert(const SipJson& event);
    bool IsUpdateMailWanted(std::uint32_t errorCode) const;
    unsigned char ReadSystemStatus(unsigned int cabinet);
    std::string RequestComponentText(unsigned int opCode, const SipJson& event);
    void FireAlertEvent(unsigned int opCode);

    // Module requests (ModuleRequests.cpp)
    struct RequestRow;
    static const RequestRow kRequests[];
    void DispatchRequest(SipJson& request);
    void AnswerPendingAlerts(SipJson& request);
    void AnswerAcknowledge(SipJson& request);
    void QueueRequest(SipJson& request);
    void QueueSendMail(SipJson& request);
    void AnswerReadConfiguration(SipJson& request);
    void AnswerWriteConfiguration(SipJson& request);

    // Tasks (TaskExecution.cpp)
    void ExecuteTask(SipJson& request);
    void ExecuteAlertSupported(SipJson& request);
    void ExecuteSendTestMail(SipJson& request);
    void ExecuteSendMail(SipJson& request);

    CAlertMailTexts MailTexts();
    static unsigned char ToStatusByte(unsigned int status) {
        return status > 0xFF ? 0 : static_cast<unsigned char>(status);
    }

    /// For a handler of exceptions: memory may be what has run out.
    static void TrySetStatus(SipJson& message, unsigned int status) noexcept;

    bool IsStopping() const { return stopping_.load(std::memory_order_relaxed) || IsSwitchShutdown(); }

    CPendingAlerts pendingAlerts_;
    CNotificationSettings mailSettings_;
    CAlertSettingsStore settings_;

    /// Held while somebody looks at the beep switch and the list and starts or stops the sequence by it: what the one
    /// decided the other sees. Taken after the list's lock, never before it. Waits for the end of a tone.
    CMutex beepLock_;
    CBeepPlayer beeper_;
    std::atomic<bool> stopping_{false};
};
