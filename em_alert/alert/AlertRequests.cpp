// SPDX-License-Identifier: Apache-2.0
#include "em_alert/alert/AlertRequests.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "em_alert/alert/AlertBeeper.h"
#include "em_alert/alert/PendingAlerts.h"
#include "em_alert/values/AgentLink.h"
#include "em_alert/values/NotificationSettings.h"

struct CAlertRequests::Row {
    unsigned int opCode;
    void (CAlertRequests::*answer)(SipJson&);
};

// What is not in the table is answered with kNotHandled.
const CAlertRequests::Row CAlertRequests::kRows[] = {
    {kPendingAlert, &CAlertRequests::AnswerPendingAlerts},
    {kAcknowledgeAlerts, &CAlertRequests::AnswerAcknowledge},
    {CM_AlerterSendTestMail, &CAlertRequests::QueueTask},
    {CM_AlerterAlertSupported, &CAlertRequests::QueueTask},
    {CM_SendMail, &CAlertRequests::QueueSendMail},
    {kReadConfigurationValue, &CAlertRequests::AnswerReadConfiguration},
    {kWriteConfigurationValue, &CAlertRequests::AnswerWriteConfiguration},
};

CAlertRequests::CAlertRequests(CAgentLink& link, CPendingAlerts& pendingAlerts, CAlertBeeper& beeper,
                               CNotificationSettings& mailSettings, std::function<bool(SipJson&)> queueTask)
    : link_(link),
      pendingAlerts_(pendingAlerts),
      beeper_(beeper),
      mailSettings_(mailSettings),
      queueTask_(std::move(queueTask)) {}

void CAlertRequests::Answer(SipJson& request) {
    const unsigned int opCode = request.GetElem("OC");
    const auto* row = std::ranges::find(kRows, opCode, &Row::opCode);
    if (row == std::end(kRows)) {
        request.SetStatus(kNotHandled);
    } else {
        (this->*row->answer)(request);
    }
}

void CAlertRequests::Acknowledge() {
    if (!pendingAlerts_.IsAnyPending()) {
        return;
    }
    pendingAlerts_.Clear();
    beeper_.StopWhenNonePends();
    link_.Announce(kAcknowledgeAlerts);
}

void CAlertRequests::AnswerPendingAlerts(SipJson& request) {
    request.SetDataByte(pendingAlerts_.IsAnyPending() ? 1 : 0, kDone);
}

void CAlertRequests::AnswerAcknowledge(SipJson& request) {
    Acknowledge();
    request.SetDataByte(1, kDone);
}

/// Leaves the request to the worker, which answers it through the switch.
void CAlertRequests::QueueTask(SipJson& request) {
    request.SetStatus(queueTask_(request) ? kAnswerFollows : kFailed);
}

void CAlertRequests::QueueSendMail(SipJson& request) {
    const int command = request.GetCmdIndex();
    if (request.GetCmdDataType(command) == rapidjson::kNumberType || request.GetCmdDataSize(command) != 0) {
        QueueTask(request);
    } else {
        request.SetStatus(kMissingMailData);
    }
}

void CAlertRequests::AnswerReadConfiguration(SipJson& request) {
    mailSettings_.AnswerRead(request);
}

void CAlertRequests::AnswerWriteConfiguration(SipJson& request) {
    mailSettings_.AnswerWrite(request);
}
