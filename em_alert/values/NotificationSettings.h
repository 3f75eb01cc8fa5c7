// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "mail/text/LumeString.h"
#include "mail/texts/MailSettings.h"
#include "notification/NotificationConfig.h"
#include "platform/Mutex.h"

class CFileLock;
class SipJson;
struct NotificationValue;

/// One mail server.
struct SmptSettings {
    std::string host;  ///< name or address; an empty one marks an unusable entry
    std::string userName;
    std::string password;  ///< plain
    unsigned short port{};
    bool useTls = false;
    unsigned char authenticationType = 0;  ///< CNotificationConfig::AuthenticationType; not 0: log in
};
using SmtpSettingsMap = std::map<CLumeString, SmptSettings>;

/// "prefix.index": the key of a server. Servers are tried in the order of their keys.
CLumeString ServerKey(const char* prefix, int index);

/// The port of a server that has none configured: 465 for "smtps://" (RFC 8314), else 25 (RFC 5321).
unsigned short DefaultPort(const std::string& host);

/// The mail settings that the module shares with other programs: mail servers, sender and recipients. Loads them from
/// the notification file, answers and writes them by request, and hands out what mails go by. Any thread.
///
/// Its locks, in the order in which they are taken: the document's, the lock file, the snapshot's. The first two are
/// held over load, change and save; whoever asks for a snapshot waits for the last one only.
class CNotificationSettings {
public:
    static constexpr int kServers = 2;  ///< that are used, and can be named by a request

    /// What mails go by. A snapshot never changes.
    struct Snapshot {
        SmtpSettingsMap servers;
        MailAddresses addresses;
    };
    std::shared_ptr<const Snapshot> Get() const;

    /// Makes the file of a server that has only the RAID manager's settings yet, under the file's lock: not while
    /// somebody else holds that. Failures are traced; a file that exists is left alone.
    void ImportWhenMissing();

    /// Reads the file under its lock into the snapshot. Without the lock nothing is read, and the settings stay due.
    void Read();

    /// Reads the settings that are still due: another program may have held the lock when they were to be read.
    void ReadWhenDue();

    // Answer a request for a value of the file: "ST" and, for a read, "DA". See docs/messages.md for each status.

    void AnswerRead(SipJson& request);

    /// A value that was saved counts at once.
    void AnswerWrite(SipJson& request);

private:
    bool LockFile(CFileLock& lock) EM_REQUIRES(lock_);
    bool IsUsable() const EM_REQUIRES(lock_);
    void SaveNewFile() EM_REQUIRES(lock_);
    bool Write(const NotificationValue& value, int server, const SipJson& request) EM_REQUIRES(lock_);
    void TakeServer(int index) EM_REQUIRES(lock_);
    void TakeAddresses() EM_REQUIRES(lock_);
    void Change(const std::function<void(Snapshot&)>& change);

    CMutex lock_;
    CNotificationConfig file_ EM_GUARDED_BY(lock_);
    std::atomic<bool> isDue_{};
    mutable CMutex snapshotLock_;
    std::shared_ptr<const Snapshot> snapshot_ EM_GUARDED_BY(snapshotLock_) = std::make_shared<Snapshot>();
};
