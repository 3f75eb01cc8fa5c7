// SPDX-License-Identifier: Apache-2.0
#include "em_alert/alert/AlertMailer.h"

#include "em_alert/values/AgentLink.h"
#include "mail/smtp/Smtp.h"
#include "platform/diagnostics/Trace.h"
#include "platform/diagnostics/WithoutPassword.h"

namespace {

void TraceAddresses(const char* heading, const std::vector<std::string>& addresses) {
    EM_TRACE(3, "\nEM_ALERT            : %s", heading);
    for (const std::string& address : addresses) {
        EM_TRACE(3, "\nEM_ALERT            :   %s", address.c_str());
    }
}

}  // namespace

CAlertMailTexts CAlertMailer::Texts() {
    return {MailSettings{mailSettings_.Get()->addresses, *settings_.Get()}, link_};
}

int CAlertMailer::Send(const CSmtpMessage& mail) {
    if (mail.Sender().empty()) {
        return kNoServerTried;
    }
    const auto settings = mailSettings_.Get();
    const SmtpSettingsMap& servers = settings->servers;
    EM_TRACE(3, "\nEM_ALERT            : SendMail sender: \"%s\"", mail.Sender().c_str());
    TraceAddresses("SendMail recipients:", mail.Recipients());
    TraceAddresses("SendMail recipients CC:", mail.RecipientsCc());
    EM_TRACE(3, "\nEM_ALERT            : Available internal SMTP settings: %d", static_cast<int>(servers.size()));

    int result = kNoServerTried;
    for (const auto& [key, server] : servers) {
        if (stopping_.load(std::memory_order_relaxed) || link_.IsShuttingDown()) {
            break;
        }
        if (server.host.empty()) {
            EM_TRACE(3, "\nEM_ALERT            : SMTP setting \"%s\" skipped - empty host name", key.c_str());
            continue;
        }
        result = SendThrough(server, mail);
        if (result == 0) {
            break;
        }
    }
    return result;
}

int CAlertMailer::SendThrough(const SmptSettings& server, const CSmtpMessage& mail) {
    EM_TRACE(3, "\nEM_ALERT            : SendMail using the following internal SMTP settings:");
    EM_TRACE(3, "\nEM_ALERT            :   SMTP server \"%s\" port %d", WithoutPassword(server.host).c_str(),
             server.port);
    // A log-in without a user name fails at the server, in sight; left out, nobody would know of it.
    const bool logsIn = server.authenticationType != 0;
    if (logsIn) {
        EM_TRACE(3, "\nEM_ALERT            :   Authentication is configured:");
        EM_TRACE(3, "\nEM_ALERT            :     User name: \"%s\"", server.userName.c_str());
    }
    const int result = CSmtp(&stopping_)
                           .SendMail(mail.Sender(), mail,
                                     {.host = server.host,
                                      .port = server.port,
                                      .logsIn = logsIn,
                                      .userName = server.userName,
                                      .password = server.password,
                                      .useTls = server.useTls});
    EM_TRACE(3, "\nEM_ALERT            : SendMail RetCode: 0x%X (%d)", static_cast<unsigned int>(result), result);
    return result;
}

void CAlertMailer::MailStatus(const SipJson& event, unsigned char systemStatus, unsigned int componentStatus) {
    EM_TRACE(2, "\nEM_ALERT            : Generate eMail alert");
    mailSettings_.ReadWhenDue();
    const std::string name = link_.RequestComponentText(kReadComponentName, event);
    const std::string designation = link_.RequestComponentText(kReadComponentDesignation, event);
    CSmtpMessage mail;
    Texts().CreateSystemStatusMail(mail, systemStatus, ToStatusByte(componentStatus), name, designation);
    const int result = Send(mail);
    EM_TRACE(2, "\nEM_ALERT            : Send System Status Mail return code: %d", result);
}

void CAlertMailer::MailUpdate(const CLogMsgArguments& record) {
    mailSettings_.ReadWhenDue();
    CSmtpMessage mail;
    Texts().CreateUpdateStatusMail(mail, record);
    const int result = Send(mail);
    EM_TRACE(2, "\nEM_ALERT            : Send Update Mail return code: %d", result);
}
