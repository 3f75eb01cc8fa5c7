// SPDX-License-Identifier: Apache-2.0
#include <optional>

#include "notification/NotificationConfig.h"
#include "platform/IgnoreCase.h"
#include "platform/diagnostics/Trace.h"
#include "platform/diagnostics/WithoutPassword.h"
#include "platform/host/OsInfo.h"
#include "platform/ini/IniFile.h"

namespace {

constexpr char kDefaultPath[] = "/opt/kestrel/HostwardenSuite/ArrayKeeper/bin/ravlo.ini";

/// Takes the settings over one by one. What the INI file leaves out stays as it is in the document.
class CTamracImport {
public:
    CTamracImport(CNotificationConfig& config, const CIniFile& ini) : config_(config), ini_(ini) {}

    void Run() {
        ImportEnabled();
        ImportMailServer();
        ImportSender();
        ImportSenderDescription();
        ImportRecipients();
    }

private:
    std::string Read(const char* key) const {
        std::string value;
        ini_.GetString(value, "Logging", key, "");
        return value;
    }

    void ImportEnabled();
    void ImportMailServer();
    void ImportPassword(const std::string& enciphered);
    void ImportSender();
    void ImportSenderDescription();
    void ImportRecipients();
    const std::string& HostName();

    CNotificationConfig& config_;
    const CIniFile& ini_;
    bool isEnabled_ = false;
    std::optional<std::string> hostName_;
};

void CTamracImport::ImportEnabled() {
    const std::string logging = Read("MailLogging");
    if (logging.empty()) {
        EM_TRACE(3, "\nCNotificationConfig :   import TAMRAC: email disabled");
        return;
    }
    isEnabled_ = EqualIgnoringCase(logging, "enabled");
    const char* const state = isEnabled_ ? "Enabled" : "Disabled";
    const CMarkupPosition keep(config_);
    config_.ResetPos();
    if (config_.FindElem() && config_.IntoElem() && config_.FindElem("email")) {
        config_.SetAttrib("Enabled", state);
    }
    EM_TRACE(3, "\nCNotificationConfig :   import TAMRAC: email \"%s\"", state);
}

/// Each setting is worth nothing without the one before it, so the first that is missing ends this.
void CTamracImport::ImportMailServer() {
    const std::string host = Read("MailLogSMTPServer");
    if (host.empty()) {
        return;
    }
    config_.SetSmtpServer(host, 0);
    EM_TRACE(3, "\nCNotificationConfig :   import TAMRAC: SMTP host name \"%s\"", WithoutPassword(host).c_str());

    const std::string user = Read("MailLogSMTPServerAuthLoginUsername");
    if (user.empty()) {
        return;
    }
    EM_TRACE(3, "\nCNotificationConfig :   import TAMRAC SMTP auth user name \"%s\"", user.c_str());
    config_.SetSmtpServerAuthenticationUserName(user, 0);
    config_.SetSmtpServerAuthenticationType(CNotificationConfig::AuthenticationType::Smtp, 0);

    const std::string password = Read("MailLogSMTPServerAuthLoginPasswordC");
    if (!password.empty()) {
        EM_TRACE(3, "\nCNotificationConfig :   import TAMRAC SMTP auht user password \"%s\"", password.c_str());
        ImportPassword(password);
    }
}

/// The RAID manager enciphers as this system does, so the text is taken over as it stands, to where the user name is.
void CTamracImport::ImportPassword(const std::string& enciphered) {
    const CMarkupPosition keep(config_);
    const bool isThere = config_.FindSmtpServerElem(0) && config_.FindElem("Authentication") &&
                         (config_.FindChildElem("Password") || config_.AddChildElem("Password"));
    if (isThere && config_.IntoElem() && config_.SetData(enciphered)) {
        config_.SetAttrib("Encryption", "2");
    }
}

void CTamracImport::ImportSender() {
    const std::string sender = Read("MailLogSender");
    if (!sender.empty()) {
        EM_TRACE(3, "\nCNotificationConfig :   import TAMRAC: email sender \"%s\"", sender.c_str());
        config_.SetSender(sender);
    } else if (isEnabled_) {
        EM_TRACE(3, "\nCNotificationConfig :   import TAMRAC: email sender is host name \"%s\"", HostName().c_str());
        config_.SetSender(HostName());
    }
}

void CTamracImport::ImportSenderDescription() {
    const std::string description = Read("MailLogSenderDescription");
    if (!description.empty()) {
        EM_TRACE(3, "\nCNotificationConfig :   import TAMRAC: email sender description \"%s\"", description.c_str());
        config_.SetSenderDescription(description);
    } else if (isEnabled_) {
        EM_TRACE(3, "\nCNotificationConfig :   import TAMRAC: email sender description set to host name \"%s\"",
                 HostName().c_str());
        config_.SetSenderDescription(HostName());
    }
}

void CTamracImport::ImportRecipients() {
    std::string recipients;
    if (ini_.GetListString(recipients, "Logging", "MailLogRecipient")) {
        EM_TRACE(3, "\nCNotificationConfig :   import TAMRAC: email receipient \"%s\"", recipients.c_str());
        config_.SetRecipients(recipients, " ,;");
    }
}

/// Asked for once: a name server that does not answer costs seconds. Empty when the host has no name.
const std::string& CTamracImport::HostName() {
    if (!hostName_) {
        COsInfo::GetComputerNameEx(hostName_.emplace(), ComputerNamePhysicalDnsFullyQualified);
    }
    return *hostName_;
}

}  // namespace

bool CNotificationConfig::ImportTamracSettings(const char* path) {
    EM_TRACE(3, "\nCNotificationConfig : Import for Hostwarden RAID SMTP settings...");
    const char* const source = path != nullptr && *path != '\0' ? path : kDefaultPath;
    EM_TRACE(3, "\nCNotificationConfig : ravlo.ini found in \"%s\"", source);
    CIniFile ini;
    const bool isOpen = ini.Open(source, true);
    if (isOpen) {
        CTamracImport(*this, ini).Run();
        ini.Close();
    }
    EM_TRACE(3, "\nCNotificationConfig : Import of Hostwarden RAID SMTP settings done!");
    return isOpen;
}
