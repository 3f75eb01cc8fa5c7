// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <charconv>
#include <iterator>
#include <string_view>

#include "mail/text/LumeString.h"
#include "notification/EncryptedString.h"
#include "notification/NotificationConfig.h"
#include "notification/Rijndael.h"

namespace {

struct AuthenticationName {
    CNotificationConfig::AuthenticationType type;
    const char* text;
};

constexpr AuthenticationName kAuthenticationNames[] = {
    {CNotificationConfig::AuthenticationType::None, "none"},
    {CNotificationConfig::AuthenticationType::Smtp, "smtp"},
    {CNotificationConfig::AuthenticationType::Pop3, "pop3"},
};

/// @return false, with `value` unchanged, for anything but a decimal number in range with blanks around it
bool ParseDecimal(std::string text, unsigned short& value) {
    CLumeString::TrimLeft(text, " \t\r\n");
    CLumeString::TrimRight(text, " \t\r\n");
    const char* const end = text.data() + text.size();
    unsigned short number{};
    const auto result = std::from_chars(text.data(), end, number);
    const bool isNumber = result.ec == std::errc() && result.ptr == end;
    if (isNumber) {
        value = number;
    }
    return isNumber;
}

}  // namespace

bool CNotificationConfig::FindSmtpServerElem(int index) {
    ResetPos();
    bool isFound = Enter("Notifications") && Enter("email") && Enter("SMTP");
    for (int i = 0; isFound && i <= index; ++i) {
        isFound = FindElem("Server");
    }
    return isFound && IntoElem();
}

bool CNotificationConfig::AddSmtpServerElem(int index) {
    ResetPos();
    const bool isInRange = index >= 0 && index < kMaxSmtpServers;
    bool isThere = isInRange && EnterOrAdd("Notifications") && EnterOrAdd("email") && EnterOrAdd("SMTP");
    for (int i = 0; isThere && i <= index; ++i) {
        isThere = FindElem("Server") || AddElem("Server");
    }
    return isThere && IntoElem();
}

bool CNotificationConfig::GetSmtpServer(std::string& host, int index) {
    const CMarkupPosition keep(*this);
    return FindSmtpServerElem(index) && ReadText("Host", host);
}

bool CNotificationConfig::SetSmtpServer(const std::string& host, int index) {
    const CMarkupPosition keep(*this);
    return AddSmtpServerElem(index) && WriteText("Host", host);
}

bool CNotificationConfig::GetSmtpServerPort(unsigned short& port, int index) {
    const CMarkupPosition keep(*this);
    std::string text;
    return FindSmtpServerElem(index) && ReadText("Port", text) && ParseDecimal(text, port);
}

bool CNotificationConfig::SetSmtpServerPort(unsigned short port, int index) {
    const CMarkupPosition keep(*this);
    return AddSmtpServerElem(index) && WriteText("Port", std::to_string(port));
}

bool CNotificationConfig::GetSmtpServerSMTPS(bool& isOn, int index) {
    const CMarkupPosition keep(*this);
    std::string text;
    if (!FindSmtpServerElem(index) || !ReadText("SMTPS", text)) {
        return false;
    }
    isOn = text == "true";
    return true;
}

bool CNotificationConfig::SetSmtpServerSMTPS(bool isOn, int index) {
    const CMarkupPosition keep(*this);
    return AddSmtpServerElem(index) && WriteText("SMTPS", isOn ? "true" : "false");
}

bool CNotificationConfig::GetSmtpServerAuthenticationType(AuthenticationType& type, int index) {
    const CMarkupPosition keep(*this);
    if (!FindSmtpServerElem(index) || !FindElem("Authentication")) {
        return false;
    }
    const std::string text = GetAttrib("Type");
    const auto* const known =
        std::ranges::find_if(kAuthenticationNames, [&](const AuthenticationName& name) { return text == name.text; });
    type = known != std::end(kAuthenticationNames) ? known->type : AuthenticationType::Unknown;
    return true;
}

bool CNotificationConfig::SetSmtpServerAuthenticationType(AuthenticationType type, int index) {
    const CMarkupPosition keep(*this);
    if (!AddSmtpServerElem(index) || !(FindElem("Authentication") || AddElem("Authentication"))) {
        return false;
    }
    const auto* const known =
        std::ranges::find_if(kAuthenticationNames, [&](const AuthenticationName& name) { return type == name.type; });
    if (known != std::end(kAuthenticationNames)) {
        return SetAttrib("Type", known->text);
    }
    RemoveAttrib("Type");
    return true;
}

bool CNotificationConfig::GetSmtpServerAuthenticationUserName(std::string& name, int index) {
    const CMarkupPosition keep(*this);
    return FindSmtpServerElem(index) && Enter("Authentication") && ReadText("UserName", name);
}

bool CNotificationConfig::SetSmtpServerAuthenticationUserName(const std::string& name, int index) {
    const CMarkupPosition keep(*this);
    return AddSmtpServerElem(index) && EnterOrAdd("Authentication") && WriteText("UserName", name);
}

bool CNotificationConfig::GetSmtpServerAuthenticationUserPassword(std::string& password, int index) {
    const CMarkupPosition keep(*this);
    std::string stored;
    if (!FindSmtpServerElem(index) || !Enter("Authentication") || !ReadText("Password", stored)) {
        return false;
    }
    unsigned short encryption{};
    const bool isEnciphered = ParseDecimal(GetAttrib("Encryption"), encryption) &&
                              encryption == static_cast<int>(PasswordEncryptionType::Enciphered);
    if (isEnciphered) {
        return CEncryptedString::TamracDecryptString(password, stored.c_str());
    }
    password = std::move(stored);
    return true;
}

bool CNotificationConfig::SetSmtpServerAuthenticationUserPassword(const std::string& password, int index,
                                                                  PasswordEncryptionType encryption) {
    const CMarkupPosition keep(*this);
    const bool isEnciphered = encryption == PasswordEncryptionType::Enciphered && !password.empty();
    std::string stored = password;
    if (isEnciphered) {
        CRijndael::Encrypt(password, stored);
    }
    if (!AddSmtpServerElem(index) || !EnterOrAdd("Authentication") || !WriteText("Password", stored)) {
        return false;
    }
    if (isEnciphered) {
        return SetAttrib("Encryption", "2");
    }
    RemoveAttrib("Encryption");
    return true;
}
