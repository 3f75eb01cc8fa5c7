// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "xml/Markup.h"

/// The notification file as a document: sender, recipients and mail servers, shared with other programs of the suite.
///
/// Who changes the file holds its lock from the load to the save:
///
///     CNotificationConfig config;
///     CFileLock lock;
///     if (lock.Lock(config.Path().c_str(), nullptr, CNotificationConfig::kLockTimeoutMs)) {
///         config.Load();
///         const bool isSaved = config.SetSender("root@example.com") && config.Save();
///     }
///
/// `Load` leaves one of four states (`Status`): with `Unreadable` and `Damaged` the getters find nothing and `Save`
/// refuses, so that a file which somebody can still repair is never overwritten. After `Missing` the document starts
/// empty, and `Save` creates the file.
///
/// Getters return false and leave the caller's value alone when an element on the way is missing (recipients are
/// cleared first). Setters create what is missing on the way; they change the document only, and return false when that
/// fails. Both keep the document's position, which must not be a recipient's address that goes. One thread at a time.
class CNotificationConfig : public CMarkup {
public:
    static constexpr const char* kDirectory = "/etc/kestrel/HostwardenSuite/ManagedNode/Notifications";
    static constexpr const char* kFileName = "Notifications.xml";
    static constexpr int kLockTimeoutMs = 5000;
    static constexpr int kMaxSmtpServers = 256;  // keeps a wild index from filling the file

    enum class AuthenticationType : int {
        Unknown = -1,
        None = 0,
        Smtp = 1,
        Pop3 = 2,  ///< POP3 before SMTP
    };

    /// How a password is stored; the values are those of the attribute "Encryption", which a plain one goes without.
    enum class PasswordEncryptionType : int { Plain = 0, Enciphered = 2 };

    explicit CNotificationConfig(const std::string& directory = kDirectory, const std::string& fileName = kFileName)
        : directory_(directory), path_(directory + "/" + fileName) {}

    const std::string& Path() const { return path_; }

    using CMarkup::Load;
    /// Loads the file without its lock, for callers that hold it.
    bool Load();

    /// Loads the file under its lock, and also when the lock could not be had: readers never see a half-written file.
    bool LoadExclusive();

    /// Writes the file, and its directory when missing, all or nothing. Refuses what `Load` could not read again.
    bool Save();

    /// Makes the file's directory when it is missing. `Save` does so itself.
    /// @return false, with a trace that gives the reason, when that fails
    bool MakeDirectory() const;

    /// Copies the mail settings of the RAID manager into the document.
    /// @param path  its INI file; null or empty means the place where it is installed
    /// @return false when there is no such file
    bool ImportTamracSettings(const char* path);

    /// Go inside email/Format, or inside SMTP/Server number `index` (from 0).
    /// @return false when that failed; the position is then undefined
    bool FindFormatElem();
    bool AddFormatElem();
    bool FindSmtpServerElem(int index);
    bool AddSmtpServerElem(int index);

    bool GetSender(std::string& address);
    bool SetSender(const std::string& address);
    bool GetSenderDescription(std::string& name);
    bool SetSenderDescription(const std::string& name);

    /// @param out  the addresses, joined with `separator`; empty on failure
    bool GetRecipients(std::string& out, const char* separator);
    bool GetRecipientsCc(std::string& out, const char* separator);
    /// @param separators  each of these characters ends an address; empty pieces are dropped
    bool SetRecipients(const std::string& list, const char* separators);
    bool SetRecipientsCc(const std::string& list, const char* separators);

    bool GetSmtpServer(std::string& host, int index);
    bool SetSmtpServer(const std::string& host, int index);

    /// What is not a decimal number from 0 to 65535 (blanks around it are fine) reads as missing.
    bool GetSmtpServerPort(unsigned short& port, int index);
    bool SetSmtpServerPort(unsigned short port, int index);

    /// Any text but "true" reads as false.
    bool GetSmtpServerSMTPS(bool& isOn, int index);
    bool SetSmtpServerSMTPS(bool isOn, int index);

    /// A missing or unknown type reads as Unknown, and is what Unknown writes: no type.
    bool GetSmtpServerAuthenticationType(AuthenticationType& type, int index);
    bool SetSmtpServerAuthenticationType(AuthenticationType type, int index);

    bool GetSmtpServerAuthenticationUserName(std::string& name, int index);
    bool SetSmtpServerAuthenticationUserName(const std::string& name, int index);

    /// The password is handed out and taken in the clear. An enciphered one ends at its first zero byte.
    bool GetSmtpServerAuthenticationUserPassword(std::string& password, int index);
    bool SetSmtpServerAuthenticationUserPassword(
        const std::string& password, int index, PasswordEncryptionType encryption = PasswordEncryptionType::Enciphered);

private:
    struct RecipientNames;

    void AddRootElem();
    bool Enter(const char* name);
    bool EnterOrAdd(const char* name);
    bool ReadText(const char* name, std::string& text);
    bool WriteText(const char* name, const std::string& text);
    bool ReadRecipients(const RecipientNames& names, std::string& out, const char* separator);
    bool WriteRecipients(const RecipientNames& names, const std::string& list, const char* separators);

    std::string directory_;
    std::string path_;
};
