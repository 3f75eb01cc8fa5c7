// SPDX-License-Identifier: Apache-2.0
#pragma once

class CAlertMailer;
class CNotificationSettings;
class SipJson;

/// What the worker does with a queued request, one at a time: "ST" and "DA" are the answer afterwards.
class CAlertTasks {
public:
    CAlertTasks(CAlertMailer& mailer, CNotificationSettings& mailSettings)
        : mailer_(mailer), mailSettings_(mailSettings) {}

    void Execute(SipJson& request);

private:
    void SendTestMail(SipJson& request);
    void SendMail(SipJson& request);

    CAlertMailer& mailer_;
    CNotificationSettings& mailSettings_;
};
