// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>

#include "em_alert/values/AlertSettings.h"
#include "em_alert/values/NotificationSettings.h"
#include "mail/texts/AlertMailTexts.h"

class CAgentLink;
class SipJson;

/// The module's mails: composes each from one snapshot of the settings and sends it through the mail servers in turn.
/// On any thread, which waits for agent and mail servers; no lock is held meanwhile.
class CAlertMailer {
public:
    /// Returned by Send when there was no server to try.
    static constexpr int kNoServerTried = -1;

    /// @param stopping  set when the module stops: breaks off a transfer, and the round of the servers
    CAlertMailer(CAgentLink& link, const CAlertSettingsStore& settings, CNotificationSettings& mailSettings,
                 std::atomic<bool>& stopping)
        : link_(link), settings_(settings), mailSettings_(mailSettings), stopping_(stopping) {}

    /// The mail texts, from the settings as they are now.
    CAlertMailTexts Texts();

    /// Tries the mail servers in key order until one accepts the mail.
    /// @return 0 on success, the last server's libcurl code, or kNoServerTried
    int Send(const CSmtpMessage& mail);

    /// Mails a component's status, in the words that the agent has for the component.
    void MailStatus(const SipJson& event, unsigned char systemStatus, unsigned int componentStatus);

    /// Mails an update record.
    void MailUpdate(const CLogMsgArguments& record);

private:
    int SendThrough(const SmptSettings& server, const CSmtpMessage& mail);

    CAgentLink& link_;
    const CAlertSettingsStore& settings_;
    CNotificationSettings& mailSettings_;
    std::atomic<bool>& stopping_;
};
