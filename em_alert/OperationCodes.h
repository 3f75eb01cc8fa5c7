#pragma once

/// Operation codes ("OC") of the messages that the module sends and receives. The names are the agent's where it has
/// one.
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

    // Configuration values: requests in both directions, and notices.
    kReadConfigurationValue = 0xE001,
    kWriteConfigurationValue = 0xE002,

    // Requests to other modules of the agent.
    kReadSystemStatus = 0x230F,
    kReadComponentName = 0x2321,
    kReadComponentDesignation = 0x2324,
    kReadMessageTemplate = 0x0B21,
};

/// As the status of a command: it gets none.
constexpr unsigned int kWithoutStatus = 0xFFFFFFFF;

/// What a command without "ST" reads as.
constexpr unsigned int kNoStatus = 22;

/// Values of "ST" in the module's answers.
enum Status : unsigned int {
    kDone = 0,
    kNotHandled = 1,
    kServerIndexOutOfRange = 2,
    kFailed = 6,
    kException = 13,
    kMissingMailData = 18,
    kValueNotAvailable = 19,
    kNotForLocalServer = 20,
    kAnswerFollows = 22,
    kLockFailed = 24,
};
