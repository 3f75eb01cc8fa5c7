#include "em_alert/AlertExtensionModule.h"
#include "mail/Smtp.h"
#include "notification/FileLock.h"
#include "platform/Trace.h"

namespace {

constexpr int kMailServers = 2;             // as many as the notification file's readers use
constexpr unsigned short kSmtpPort = 25;    // RFC 5321
constexpr unsigned short kSmtpsPort = 465;  // RFC 8314

CLumeString ServerKey(const char* prefix, int index) {
    CLumeString key;
    key.Format("%s.%d", prefix, index);
    return key;
}

/// What a server entry without a port means.
unsigned short DefaultPort(const std::string& host) {
    return host.starts_with("smtps://") ? kSmtpsPort : kSmtpPort;
}

void TraceAddresses(const char* heading, const std::vector<std::string>& addresses) {
    EM_TRACE(3, "\nEM_ALERT            : %s", heading);
    for (const std::string& address : addresses) {
        EM_TRACE(3, "\nEM_ALERT            :   %s", address.c_str());
    }
}

}  // namespace

void CAlertExtensionModule::ReadAlerterSmtpSettings() {
    const CMutexLock lock(notificationLock_);
    CFileLock fileLock;
    areMailSettingsDue_ = !fileLock.Lock(notification_.Path().c_str(), nullptr, CNotificationConfig::kLockTimeoutMs);
    if (!areMailSettingsDue_) {
        EM_TRACE(3, "\nEM_ALERT            : Load shared notification configuration from file");
        notification_.Load();
        EM_TRACE(3, "\nEM_ALERT            : Read shared notification configuration settings");
        for (int index = 0; index < kMailServers; ++index) {
            TakeMailServer(index);
        }
        TakeMailFormat();
        fileLock.UnlockFile(notification_.Path().c_str());
    } else {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! FAILED to lock notification configuration file!");
    }
    EM_TRACE(3, "\nEM_ALERT            : SMTP configurations added: %d", static_cast<int>(MailServers().size()));
}

/// Another program may have held the lock when the module started: each mail is worth another try.
void CAlertExtensionModule::ReadDueMailSettings() {
    if (areMailSettingsDue_) {
        ReadAlerterSmtpSettings();
    }
}

/// Takes one server of the loaded notification file over into the table of mail servers.
void CAlertExtensionModule::TakeMailServer(int index) {
    SmptSettings server;
    EM_TRACE(3, "\nEM_ALERT            : Add SMTP server config [%d]:", index);
    notification_.GetSmtpServer(server.host, index);
    EM_TRACE(3, "\nEM_ALERT            :   SMTP host name: \"%s\"", server.host.c_str());
    server.port = DefaultPort(server.host);
    notification_.GetSmtpServerPort(server.port, index);
    EM_TRACE(3, "\nEM_ALERT            :   SMTP port: %d", server.port);
    notification_.GetSmtpServerSMTPS(server.useTls, index);
    EM_TRACE(3, "\nEM_ALERT            :   SMTPS: %s", server.useTls ? "true" : "false");
    auto type = CNotificationConfig::AuthenticationType::None;
    notification_.GetSmtpServerAuthenticationType(type, index);
    server.authenticationType = static_cast<unsigned char>(type);
    EM_TRACE(3, "\nEM_ALERT            :   SMTP authentification type: %d", static_cast<int>(type));
    notification_.GetSmtpServerAuthenticationUserName(server.userName, index);
    EM_TRACE(3, "\nEM_ALERT            :   SMTP authentification user name: \"%s\"", server.userName.c_str());
    notification_.GetSmtpServerAuthenticationUserPassword(server.password, index);

    if (!server.host.empty()) {
        CSmtp::Prepare();  // here, on a thread of the agent, rather than on the worker with the first mail
    }
    const CMutexLock lock(smtpLock_);
    smtpSettings_[ServerKey("Alerter", index)] = std::move(server);
}

/// Takes sender and recipients of the loaded notification file over into the settings.
void CAlertExtensionModule::TakeMailFormat() {
    MailSettings mail;
    notification_.GetSender(mail.senderAddress);
    EM_TRACE(3, "\nEM_ALERT            : Mail alert sender: \"%s\"", mail.senderAddress.c_str());
    notification_.GetSenderDescription(mail.senderName);
    EM_TRACE(3, "\nEM_ALERT            : Mail alert sender name: \"%s\"", mail.senderName.c_str());
    notification_.GetRecipients(mail.recipients, ";");
    EM_TRACE(3, "\nEM_ALERT            : Mail alert recipients: \"%s\"", mail.recipients.c_str());
    notification_.GetRecipientsCc(mail.recipientsCc, ";");
    EM_TRACE(3, "\nEM_ALERT            : Mail alert recipients CC: \"%s\"", mail.recipientsCc.c_str());
    settings_.Change([&](AlertSettings& settings) {
        settings.senderAddress = mail.senderAddress;
        settings.senderName = mail.senderName;
        settings.recipients = mail.recipients;
        settings.recipientsCc = mail.recipientsCc;
    });
}

CAlertExtensionModule::SmtpSettingsMap CAlertExtensionModule::MailServers() const {
    const CMutexLock lock(smtpLock_);
    return smtpSettings_;
}

void CAlertExtensionModule::ImportZelconSmtpSettings(SmtpSettingsMap& map) {
    EM_TRACE(3, "\nEM_ALERT            : Import Zelcon SMTP settings without user authentication...");
    unsigned int count = 2;
    RequestNumber(kReadConfigurationValue, 0x128E, 0, count);
    count &= 0xFF;
    EM_TRACE(3, "\nEM_ALERT            : Zelcon SMTP settings found: %d", static_cast<int>(count));
    for (unsigned int i = 0; i < count; ++i) {
        unsigned int enabled = 0;
        RequestNumber(kReadConfigurationValue, 0x1270, i, enabled);
        SmptSettings server;
        RequestText(kReadConfigurationValue, 0x1282, i, server.host);
        EM_TRACE(3, "\nEM_ALERT            :   import Zelcon SMTP host name \"%s\"", server.host.c_str());
        if (!server.host.empty()) {
            unsigned int port = DefaultPort(server.host);
            RequestNumber(kReadConfigurationValue, 0x1283, i, port);
            server.port = static_cast<unsigned short>(port);
            EM_TRACE(3, "\nEM_ALERT            :   import Zelcon SMTP port %d", server.port);
        }
        map[ServerKey("Zelcon", static_cast<int>(i))] = std::move(server);
    }
    EM_TRACE(3, "\nEM_ALERT            : Zelcon SMTP settings imported: %d", static_cast<int>(count));
    EM_TRACE(3, "\nEM_ALERT            : Import of Zelcon SMTP settings done!");
}

int CAlertExtensionModule::AlerterSendMail(const CSmtpMessage& mail) {
    constexpr int kNoServerTried = -1;
    if (mail.Sender().empty()) {
        return kNoServerTried;
    }
    const SmtpSettingsMap servers = MailServers();
    EM_TRACE(3, "\nEM_ALERT            : SendMail sender: \"%s\"", mail.Sender().c_str());
    TraceAddresses("SendMail recipients:", mail.Recipients());
    TraceAddresses("SendMail recipients CC:", mail.RecipientsCc());
    EM_TRACE(3, "\nEM_ALERT            : Available internal SMTP settings: %d", static_cast<int>(servers.size()));

    int result = kNoServerTried;
    for (const auto& [key, server] : servers) {
        if (IsStopping()) {
            break;
        }
        if (server.host.empty()) {
            EM_TRACE(3, "\nEM_ALERT            : SMTP setting \"%s\" skipped - empty host name", key.c_str());
            continue;
        }
        EM_TRACE(3, "\nEM_ALERT            : SendMail using the following internal SMTP settings:");
        EM_TRACE(3, "\nEM_ALERT            :   SMTP server \"%s\" port %d", server.host.c_str(), server.port);
        const bool logsIn = server.authenticationType != 0 && !server.userName.empty();
        if (logsIn) {
            EM_TRACE(3, "\nEM_ALERT            :   Authentication is configured:");
            EM_TRACE(3, "\nEM_ALERT            :     User name: \"%s\"", server.userName.c_str());
        }
        result = CSmtp(&stopping_)
                     .SendMail(mail.Sender().c_str(), mail, server.host.c_str(), server.port,
                               logsIn ? server.userName.c_str() : nullptr,
                               server.password.empty() ? nullptr : server.password.c_str(), server.useTls);
        EM_TRACE(3, "\nEM_ALERT            : SendMail RetCode: 0x%X (%d)", static_cast<unsigned int>(result), result);
        if (result == 0) {
            break;
        }
    }
    return result;
}
