// SPDX-License-Identifier: Apache-2.0
#include "em_alert/values/NotificationSettings.h"

#include <cerrno>
#include <sys/stat.h>
#include <utility>

#include "em_alert/values/NotificationValues.h"
#include "mail/smtp/Smtp.h"
#include "notification/FileLock.h"
#include "platform/diagnostics/Trace.h"
#include "platform/diagnostics/WithoutPassword.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

namespace {

bool FileExists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

/// Finds the value that a request names, and the server when the value is one of a server.
/// @return null after answering a request for one that does not exist
const NotificationValue* FindValue(SipJson& request, int& server) {
    const NotificationValue* value = FindNotificationValue(request.GetElem("OE"));
    if (value == nullptr) {
        request.SetStatus(kNotHandled);
        return nullptr;
    }
    if (value->IsPerServer()) {
        const unsigned int index = request.GetElem("OI");
        if (index >= CNotificationSettings::kServers) {
            request.SetStatus(kServerIndexOutOfRange);
            return nullptr;
        }
        server = static_cast<int>(index);
    }
    return value;
}

}  // namespace

CLumeString ServerKey(const char* prefix, int index) {
    CLumeString key;
    key.Format("%s.%d", prefix, index);
    return key;
}

unsigned short DefaultPort(const std::string& host) {
    constexpr unsigned short kSmtpPort = 25;
    constexpr unsigned short kSmtpsPort = 465;
    return host.starts_with("smtps://") ? kSmtpsPort : kSmtpPort;
}

std::shared_ptr<const CNotificationSettings::Snapshot> CNotificationSettings::Get() const {
    const CMutexLock lock(snapshotLock_);
    return snapshot_;
}

void CNotificationSettings::Change(const std::function<void(Snapshot&)>& change) {
    const CMutexLock lock(snapshotLock_);
    auto next = std::make_shared<Snapshot>(*snapshot_);
    change(*next);
    snapshot_ = std::move(next);
}

bool CNotificationSettings::LockFile(CFileLock& lock) {
    if (lock.Lock(file_.Path().c_str(), nullptr, CNotificationConfig::kLockTimeoutMs)) {
        return true;
    }
    EM_TRACE(1, "\nEM_ALERT            : ERROR! FAILED to lock notification configuration file!");
    return false;
}

/// A file that is not there yet has no values; one that cannot be read or understood is left alone.
bool CNotificationSettings::IsUsable() const {
    return file_.Status() == CNotificationConfig::LoadStatus::Loaded ||
           file_.Status() == CNotificationConfig::LoadStatus::Missing;
}

void CNotificationSettings::ImportWhenMissing() {
    const CMutexLock lock(lock_);
    if (FileExists(file_.Path())) {
        return;
    }
    if (!IsUsable()) {
        file_.Load();  // the file that was no good has gone
    }
    if (!file_.ImportTamracSettings(nullptr)) {
        return;
    }
    if (file_.MakeDirectory()) {
        SaveNewFile();
    }
    EM_TRACE(3,
             "\nEM_ALERT            : Hostwarden RAID settings imported into shared notification configuration file!");
}

/// A lock that somebody holds is respected. One that cannot be made is held by nobody: the save goes on, and tells what
/// is wrong with the place.
void CNotificationSettings::SaveNewFile() {
    CFileLock fileLock;
    const bool isHeld = !LockFile(fileLock) && fileLock.LastError() == EWOULDBLOCK;
    if (!isHeld && !FileExists(file_.Path())) {  // nobody else made it meanwhile
        file_.Save();
    }
}

void CNotificationSettings::Read() {
    const CMutexLock lock(lock_);
    CFileLock fileLock;
    isDue_ = !LockFile(fileLock);
    if (!isDue_) {
        EM_TRACE(3, "\nEM_ALERT            : Load shared notification configuration from file");
        file_.Load();
        EM_TRACE(3, "\nEM_ALERT            : Read shared notification configuration settings");
        for (int index = 0; index < kServers; ++index) {
            TakeServer(index);
        }
        TakeAddresses();
        fileLock.UnlockFile(file_.Path().c_str());
    }
    EM_TRACE(3, "\nEM_ALERT            : SMTP configurations added: %d", static_cast<int>(Get()->servers.size()));
}

void CNotificationSettings::ReadWhenDue() {
    if (isDue_) {
        ImportWhenMissing();
        Read();
    }
}

/// Takes one server of the loaded file over into the snapshot.
void CNotificationSettings::TakeServer(int index) {
    SmptSettings server;
    EM_TRACE(3, "\nEM_ALERT            : Add SMTP server config [%d]:", index);
    file_.GetSmtpServer(server.host, index);
    EM_TRACE(3, "\nEM_ALERT            :   SMTP host name: \"%s\"", WithoutPassword(server.host).c_str());
    server.port = DefaultPort(server.host);
    file_.GetSmtpServerPort(server.port, index);
    EM_TRACE(3, "\nEM_ALERT            :   SMTP port: %d", server.port);
    file_.GetSmtpServerSMTPS(server.useTls, index);
    EM_TRACE(3, "\nEM_ALERT            :   SMTPS: %s", server.useTls ? "true" : "false");
    auto type = CNotificationConfig::AuthenticationType::None;
    file_.GetSmtpServerAuthenticationType(type, index);
    server.authenticationType = static_cast<unsigned char>(type);
    EM_TRACE(3, "\nEM_ALERT            :   SMTP authentification type: %d", static_cast<int>(type));
    file_.GetSmtpServerAuthenticationUserName(server.userName, index);
    EM_TRACE(3, "\nEM_ALERT            :   SMTP authentification user name: \"%s\"", server.userName.c_str());
    file_.GetSmtpServerAuthenticationUserPassword(server.password, index);

    if (!server.host.empty()) {
        CSmtp::Prepare();  // here, on a thread of the agent, rather than on the worker with the first mail
    }
    Change([&](Snapshot& next) { next.servers[ServerKey("Alerter", index)] = std::move(server); });
}

/// Takes sender and recipients of the loaded file over into the snapshot.
void CNotificationSettings::TakeAddresses() {
    MailAddresses addresses;
    file_.GetSender(addresses.senderAddress);
    EM_TRACE(3, "\nEM_ALERT            : Mail alert sender: \"%s\"", addresses.senderAddress.c_str());
    file_.GetSenderDescription(addresses.senderName);
    EM_TRACE(3, "\nEM_ALERT            : Mail alert sender name: \"%s\"", addresses.senderName.c_str());
    file_.GetRecipients(addresses.recipients, ";");
    EM_TRACE(3, "\nEM_ALERT            : Mail alert recipients: \"%s\"", addresses.recipients.c_str());
    file_.GetRecipientsCc(addresses.recipientsCc, ";");
    EM_TRACE(3, "\nEM_ALERT            : Mail alert recipients CC: \"%s\"", addresses.recipientsCc.c_str());
    Change([&](Snapshot& next) { next.addresses = std::move(addresses); });
}

void CNotificationSettings::AnswerRead(SipJson& request) {
    int server{};
    const NotificationValue* value = FindValue(request, server);
    if (value == nullptr) {
        return;
    }
    const CMutexLock lock(lock_);
    file_.LoadExclusive();
    if (IsUsable()) {
        value->read(file_, server, request);
    }
}

void CNotificationSettings::AnswerWrite(SipJson& request) {
    int server{};
    const NotificationValue* value = FindValue(request, server);
    if (value == nullptr) {
        return;
    }
    if (value->write == nullptr) {  // accepted for the sake of old consoles; servers are counted, not set
        request.SetStatus(kDone);
        return;
    }
    const CMutexLock lock(lock_);
    CFileLock fileLock;
    if (!LockFile(fileLock)) {
        request.SetStatus(kLockFailed);
        return;
    }
    request.SetStatus(Write(*value, server, request) ? kDone : kFailed);
    fileLock.UnlockFile(file_.Path().c_str());
}

/// Changes one value of the file; what was saved is taken over.
bool CNotificationSettings::Write(const NotificationValue& value, int server, const SipJson& request) {
    file_.Load();
    if (!IsUsable() || !value.write(file_, server, request) || !file_.Save()) {
        return false;
    }
    if (value.IsPerServer()) {
        TakeServer(server);
    } else {
        TakeAddresses();
    }
    return true;
}
