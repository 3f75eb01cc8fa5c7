// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

class CAgentLink;
class CAlertBeeper;
class CNotificationSettings;
class CPendingAlerts;
class SipJson;

/// Answers the agent's requests, or leaves them to the worker: "ST" and, where it is known, "DA". Any thread.
class CAlertRequests {
public:
    /// @param queueTask  hands a copy of the request to the worker; false when it was not taken
    CAlertRequests(CAgentLink& link, CPendingAlerts& pendingAlerts, CAlertBeeper& beeper,
                   CNotificationSettings& mailSettings, std::function<bool(SipJson&)> queueTask);

    /// The answers are in docs/messages.md.
    void Answer(SipJson& request);

    /// Clears the list, stops the beep and announces it; does nothing when no alert is pending.
    void Acknowledge();

private:
    struct Row;
    static const Row kRows[];

    void AnswerPendingAlerts(SipJson& request);
    void AnswerAcknowledge(SipJson& request);
    void QueueTask(SipJson& request);
    void QueueSendMail(SipJson& request);
    void AnswerReadConfiguration(SipJson& request);
    void AnswerWriteConfiguration(SipJson& request);

    CAgentLink& link_;
    CPendingAlerts& pendingAlerts_;
    CAlertBeeper& beeper_;
    CNotificationSettings& mailSettings_;
    const std::function<bool(SipJson&)> queueTask_;
};
