// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "em_alert/alert/AlertPolicy.h"

class CAgentLink;
class CAlertBeeper;
class CAlertMailer;
class CAlertSettingsStore;
class CPendingAlerts;
class SipJson;
struct AlertSettings;

/// Carries out what a status or update event causes: pending alert, beep, mail. Runs on the thread that delivers the
/// event, mail included.
class CAlertTrigger {
public:
    CAlertTrigger(CAgentLink& link, const CAlertSettingsStore& settings, CPendingAlerts& pendingAlerts,
                  CAlertBeeper& beeper, CAlertMailer& mailer)
        : link_(link), settings_(settings), pendingAlerts_(pendingAlerts), beeper_(beeper), mailer_(mailer) {}

    /// Other events cause nothing.
    void Process(const SipJson& event);

private:
    void ProcessComponentStatus(const SipJson& event);
    bool FollowPendingAlerts(const SipJson& event, AlerterSeverity severity);
    void MailSystemStatus(const SipJson& event, unsigned char systemStatus, const AlertSettings& settings);
    void ProcessUpdateAlert(const SipJson& event);
    bool IsUpdateMailWanted(unsigned int errorCode) const;

    CAgentLink& link_;
    const CAlertSettingsStore& settings_;
    CPendingAlerts& pendingAlerts_;
    CAlertBeeper& beeper_;
    CAlertMailer& mailer_;
};
