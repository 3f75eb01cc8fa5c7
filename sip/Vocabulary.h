// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

/// The numbers that agent and module put into their messages, each written down here and nowhere else. What the
/// messages hold besides is told in docs/messages.md. Header only: who needs the words need not know how a message is
/// built.

/// "OC": what a message is about. The names that do not begin with "k" are the agent's.
enum OperationCode : unsigned int {
    // Events that the module receives.
    CM_StatusTreeComponentInstanceStatus = 0x2322,
    CM_UmServerUpdateAlert = 0x3341,

    // Requests to the module; the first two are also the events that it fires.
    kPendingAlert = 0x2240,
    kAcknowledgeAlerts = 0x2241,
    CM_AlerterSendTestMail = 0x2242,
    CM_AlerterAlertSupported = 0x2243,
    CM_SendMail = 0x1060,

    // Configuration values: requests in both directions; the second is a notice as well.
    kReadConfigurationValue = 0xE001,
    kWriteConfigurationValue = 0xE002,

    // Questions to other modules of the agent.
    kReadSystemStatus = 0x230F,
    kReadComponentName = 0x2321,
    kReadComponentDesignation = 0x2324,
    kReadSystemInformation = 0x0C00,
    kReadUpdateMessage = 0x0B21,
};

/// "OE" of kReadConfigurationValue and kWriteConfigurationValue.
enum ConfigurationValue : unsigned int {
    // Kept by the module in the notification file.
    kSender = 0x0412,
    kSenderDescription = 0x0413,
    kRecipients = 0x0414,
    kRecipientsCc = 0x0419,
    kServerCount = 0x0430,
    kServerHost = 0x0431,
    kServerPort = 0x0432,
    kServerAuthenticationType = 0x0436,
    kServerUserName = 0x0438,
    kServerPassword = 0x0439,
    kServerSmtps = 0x043A,

    // Kept by the agent, followed by the module.
    kBeepAlert = 0x0400,
    kBeepWarningSequence = 0x0401,
    kBeepErrorSequence = 0x0402,
    kMailForStatusAlert = 0x0410,
    kMailAlertSeverity = 0x0411,
    kMailAlertSubject = 0x0416,
    kMailAlertMessage = 0x0417,
    kMailAlertImportance = 0x0418,
    kUpdateStatusSubject = 0x041A,
    kUpdateStatusMessage = 0x041B,
    kMailLanguage = 0x0420,
    kStringStatusOk = 0x0421,
    kStringStatusWarning = 0x0422,
    kStringStatusError = 0x0423,
    kStringDateFormat = 0x0424,
    kStringTimeFormat = 0x0425,
    kConfUpdAlertNewUpdates = 0x1A4D,
    kConfUpdAlertJobFinished = 0x1A4E,

    // Kept by the agent, asked for by the module.
    kSystemAssetTag = 0x0210,
    kControllerMailEnabled = 0x1270,
    kControllerMailHost = 0x1282,
    kControllerMailPort = 0x1283,
    kControllerMailCount = 0x128E,
};

/// "OE" of kReadSystemInformation.
enum SystemInformation : unsigned int {
    kSystemSerialNumber = 0x0600,
    kSystemModel = 0x1508,
};

/// "ST" of an answer.
enum Status : unsigned int {
    kDone = 0,
    kNotHandled = 1,
    kServerIndexOutOfRange = 2,
    kFailed = 6,
    kAgentStatus12 = 12,  ///< the agent's own; what the module asked for is there, as with kDone
    kException = 13,
    kMissingMailData = 18,
    kValueNotAvailable = 19,
    kNotForLocalServer = 20,
    kAgentStatus21 = 21,  ///< as kAgentStatus12
    kAnswerFollows = 22,
    kLockFailed = 24,
    kEvent = 255,  ///< no answer: marks an event
};

/// What a command without "ST" reads as: nobody has answered it yet.
constexpr unsigned int kNoStatus = kAnswerFollows;

/// In place of a status for a command that is to have none.
constexpr unsigned int kWithoutStatus = 0xFFFFFFFF;

/// "CA" or "MI" of a message to all cabinets or modules.
constexpr unsigned int kEveryone = 0xFFFFFFFF;

/// What a number is: a column of the table of docs/messages.md, or a table of its own there.
enum class WordKind {
    Operation,
    MailSetting,   ///< a configuration value that the module keeps
    AlertSetting,  ///< a configuration value that the module follows
    AgentValue,    ///< a configuration value that the module asks for
    SystemInformation,
    Status,
};

/// One word of the vocabulary.
struct VocabularyWord {
    unsigned int number;
    std::string_view name;  ///< for people
    WordKind kind;
    bool isPerServer = false;  ///< "OI" is the mail server's number then, 0 or 1
};

constexpr auto kVocabulary = std::to_array<VocabularyWord>({
    {kReadUpdateMessage, "message template", WordKind::Operation},
    {kReadSystemInformation, "system data", WordKind::Operation},
    {CM_SendMail, "send mail", WordKind::Operation},
    {kPendingAlert, "pending alert", WordKind::Operation},
    {kAcknowledgeAlerts, "acknowledge alerts", WordKind::Operation},
    {CM_AlerterSendTestMail, "send test mail", WordKind::Operation},
    {CM_AlerterAlertSupported, "alerting supported", WordKind::Operation},
    {kReadSystemStatus, "system status", WordKind::Operation},
    {kReadComponentName, "component name", WordKind::Operation},
    {CM_StatusTreeComponentInstanceStatus, "component status", WordKind::Operation},
    {kReadComponentDesignation, "component designation", WordKind::Operation},
    {CM_UmServerUpdateAlert, "update manager alert", WordKind::Operation},
    {kReadConfigurationValue, "configuration value", WordKind::Operation},
    {kWriteConfigurationValue, "change of configuration value", WordKind::Operation},

    {kSender, "sender", WordKind::MailSetting},
    {kSenderDescription, "sender description", WordKind::MailSetting},
    {kRecipients, "recipients", WordKind::MailSetting},
    {kRecipientsCc, "recipients CC", WordKind::MailSetting},
    {kServerCount, "number of mail servers", WordKind::MailSetting},
    {kServerHost, "mail server", WordKind::MailSetting, true},
    {kServerPort, "mail server port", WordKind::MailSetting, true},
    {kServerAuthenticationType, "authentication type", WordKind::MailSetting, true},
    {kServerUserName, "user name", WordKind::MailSetting, true},
    {kServerPassword, "password", WordKind::MailSetting, true},
    {kServerSmtps, "SMTPS", WordKind::MailSetting, true},

    {kBeepAlert, "beep alert", WordKind::AlertSetting},
    {kBeepWarningSequence, "beep warning sequence", WordKind::AlertSetting},
    {kBeepErrorSequence, "beep error sequence", WordKind::AlertSetting},
    {kMailForStatusAlert, "mail for status alert", WordKind::AlertSetting},
    {kMailAlertSeverity, "mail alert severity", WordKind::AlertSetting},
    {kMailAlertSubject, "mail alert subject", WordKind::AlertSetting},
    {kMailAlertMessage, "mail alert message", WordKind::AlertSetting},
    {kMailAlertImportance, "mail alert importance", WordKind::AlertSetting},
    {kUpdateStatusSubject, "update status subject", WordKind::AlertSetting},
    {kUpdateStatusMessage, "update status message", WordKind::AlertSetting},
    {kMailLanguage, "mail language", WordKind::AlertSetting},
    {kStringStatusOk, "word for OK", WordKind::AlertSetting},
    {kStringStatusWarning, "word for warning", WordKind::AlertSetting},
    {kStringStatusError, "word for error", WordKind::AlertSetting},
    {kStringDateFormat, "date", WordKind::AlertSetting},
    {kStringTimeFormat, "time", WordKind::AlertSetting},
    {kConfUpdAlertNewUpdates, "mail for new updates", WordKind::AlertSetting},
    {kConfUpdAlertJobFinished, "mail for finished updates", WordKind::AlertSetting},

    {kSystemAssetTag, "asset tag", WordKind::AgentValue},
    {kSystemSerialNumber, "serial number", WordKind::SystemInformation},
    {kSystemModel, "system model", WordKind::SystemInformation},
    {kControllerMailEnabled, "controller mail settings", WordKind::AgentValue},
    {kControllerMailHost, "controller mail server", WordKind::AgentValue},
    {kControllerMailPort, "controller mail server port", WordKind::AgentValue},
    {kControllerMailCount, "number of controller mail servers", WordKind::AgentValue},

    {kDone, "done", WordKind::Status},
    {kNotHandled, "not handled", WordKind::Status},
    {kServerIndexOutOfRange, "no such mail server", WordKind::Status},
    {kFailed, "failed", WordKind::Status},
    {kException, "exception", WordKind::Status},
    {kMissingMailData, "mail data missing", WordKind::Status},
    {kValueNotAvailable, "no value", WordKind::Status},
    {kNotForLocalServer, "not for this server", WordKind::Status},
    {kAnswerFollows, "answer follows", WordKind::Status},
    {kLockFailed, "configuration file locked", WordKind::Status},
    {kEvent, "event", WordKind::Status},
});

constexpr const VocabularyWord* FindWord(unsigned int number, bool (*isWanted)(WordKind)) {
    const auto* word = std::ranges::find_if(
        kVocabulary, [=](const VocabularyWord& w) { return w.number == number && isWanted(w.kind); });
    return word == kVocabulary.end() ? nullptr : word;
}

// Each finds what a number means in its place; null when it means nothing there.

constexpr const VocabularyWord* FindOperation(unsigned int number) {
    return FindWord(number, [](WordKind kind) { return kind == WordKind::Operation; });
}

constexpr const VocabularyWord* FindConfigurationValue(unsigned int number) {
    return FindWord(number, [](WordKind kind) {
        return kind == WordKind::MailSetting || kind == WordKind::AlertSetting || kind == WordKind::AgentValue;
    });
}

constexpr const VocabularyWord* FindSystemInformation(unsigned int number) {
    return FindWord(number, [](WordKind kind) { return kind == WordKind::SystemInformation; });
}

constexpr const VocabularyWord* FindStatus(unsigned int number) {
    return FindWord(number, [](WordKind kind) { return kind == WordKind::Status; });
}
