// SPDX-License-Identifier: Apache-2.0
#include "notification/NotificationConfig.h"

#include <system_error>
#include <vector>

#include "mail/text/LumeString.h"
#include "notification/Directories.h"
#include "notification/FileLock.h"
#include "platform/diagnostics/Trace.h"

struct CNotificationConfig::RecipientNames {
    const char* list;
    const char* item;

    static const RecipientNames kTo;
    static const RecipientNames kCc;
};

constexpr CNotificationConfig::RecipientNames CNotificationConfig::RecipientNames::kTo{"Recipients", "Recipient"};
constexpr CNotificationConfig::RecipientNames CNotificationConfig::RecipientNames::kCc{"RecipientsCC", "RecipientCC"};

bool CNotificationConfig::Load() {
    const bool isLoaded = CMarkup::Load(path_);
    if (!isLoaded) {
        EM_TRACE(Status() == LoadStatus::Missing ? 2 : 1, "\nCNotificationConfig : File \"%s\" not loaded: %s",
                 path_.c_str(), ErrorText().c_str());
    }
    return isLoaded;
}

bool CNotificationConfig::LoadExclusive() {
    CFileLock lock;
    lock.Lock(path_.c_str(), nullptr, kLockTimeoutMs);
    return Load();
}

/// A document without any element is none, and could not be loaded again.
void CNotificationConfig::AddRootElem() {
    const CMarkupPosition keep(*this);
    ResetPos();
    if (!FindElem()) {
        AddElem("Notifications");
    }
}

bool CNotificationConfig::Save() {
    if (Status() == LoadStatus::Unreadable || Status() == LoadStatus::Damaged) {
        EM_TRACE(1, "\nCNotificationConfig : ERROR! File \"%s\" could not be loaded and is not overwritten!",
                 path_.c_str());
        return false;
    }
    if (!MakeDirectory()) {
        return false;
    }
    AddRootElem();
    if (!CMarkup::Save(path_)) {
        EM_TRACE(1, "\nCNotificationConfig : ERROR! FAILED to save file \"%s\"!", path_.c_str());
        EM_TRACE(1, "\nCNotificationConfig :   %s", ErrorText().c_str());
        return false;
    }
    return true;
}

bool CNotificationConfig::MakeDirectory() const {
    const int error = CreateDirectories(directory_);
    if (error != 0) {
        EM_TRACE(1, "\nCNotificationConfig : ERROR! FAILED to create directory \"%s\"!", directory_.c_str());
        EM_TRACE(1, "\nCNotificationConfig :   %s", std::generic_category().message(error).c_str());
    }
    return error == 0;
}

bool CNotificationConfig::Enter(const char* name) {
    return FindElem(name) && IntoElem();
}

bool CNotificationConfig::EnterOrAdd(const char* name) {
    return (FindElem(name) || AddElem(name)) && IntoElem();
}

bool CNotificationConfig::ReadText(const char* name, std::string& text) {
    if (!FindElem(name)) {
        return false;
    }
    text = GetData();
    return true;
}

bool CNotificationConfig::WriteText(const char* name, const std::string& text) {
    return (FindElem(name) || AddElem(name)) && SetData(text);
}

bool CNotificationConfig::FindFormatElem() {
    ResetPos();
    return Enter("Notifications") && Enter("email") && Enter("Format");
}

bool CNotificationConfig::AddFormatElem() {
    ResetPos();
    return EnterOrAdd("Notifications") && EnterOrAdd("email") && EnterOrAdd("Format");
}

bool CNotificationConfig::GetSender(std::string& address) {
    const CMarkupPosition keep(*this);
    return FindFormatElem() && Enter("Sender") && ReadText("Address", address);
}

bool CNotificationConfig::SetSender(const std::string& address) {
    const CMarkupPosition keep(*this);
    return AddFormatElem() && EnterOrAdd("Sender") && WriteText("Address", address);
}

bool CNotificationConfig::GetSenderDescription(std::string& name) {
    const CMarkupPosition keep(*this);
    return FindFormatElem() && Enter("Sender") && ReadText("Description", name);
}

bool CNotificationConfig::SetSenderDescription(const std::string& name) {
    const CMarkupPosition keep(*this);
    return AddFormatElem() && EnterOrAdd("Sender") && WriteText("Description", name);
}

bool CNotificationConfig::GetRecipients(std::string& out, const char* separator) {
    return ReadRecipients(RecipientNames::kTo, out, separator);
}

bool CNotificationConfig::SetRecipients(const std::string& list, const char* separators) {
    return WriteRecipients(RecipientNames::kTo, list, separators);
}

bool CNotificationConfig::GetRecipientsCc(std::string& out, const char* separator) {
    return ReadRecipients(RecipientNames::kCc, out, separator);
}

bool CNotificationConfig::SetRecipientsCc(const std::string& list, const char* separators) {
    return WriteRecipients(RecipientNames::kCc, list, separators);
}

bool CNotificationConfig::ReadRecipients(const RecipientNames& names, std::string& out, const char* separator) {
    const CMarkupPosition keep(*this);
    out.clear();
    if (!FindFormatElem() || !Enter(names.list)) {
        return false;
    }
    while (FindElem(names.item)) {
        if (!FindChildElem("Address")) {
            continue;
        }
        if (!out.empty() && separator != nullptr) {
            out += separator;
        }
        IntoElem();
        out += GetData();
        OutOfElem();
    }
    return true;
}

bool CNotificationConfig::WriteRecipients(const RecipientNames& names, const std::string& list,
                                          const char* separators) {
    const CMarkupPosition keep(*this);
    if (!AddFormatElem() || !EnterOrAdd(names.list)) {
        return false;
    }
    std::vector<std::string> addresses;
    CLumeString(list).Split(addresses, separators);
    std::erase(addresses, std::string());
    for (const std::string& address : addresses) {
        const bool isWritten = (FindElem(names.item) || AddElem(names.item)) &&
                               (FindChildElem("Address") || AddChildElem("Address")) && IntoElem() &&
                               SetData(address) && OutOfElem();
        if (!isWritten) {
            return false;
        }
    }
    // Other programs count on their elements staying in place: what is left over is emptied, not removed.
    while (FindElem(names.item)) {
        while (FindChildElem("Address")) {
            RemoveChildElem();
        }
    }
    return true;
}
