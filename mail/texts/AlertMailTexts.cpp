// SPDX-License-Identifier: Apache-2.0
#include "mail/texts/AlertMailTexts.h"

#include <sys/utsname.h>

#include "mail/texts/DateTime.h"
#include "platform/diagnostics/Trace.h"
#include "platform/host/HostIpAddress.h"
#include "platform/host/OsInfo.h"
#include "sip/Vocabulary.h"

namespace {

struct StatusWord {
    const char* system;
    const char* component;
    unsigned int translation;  // id of the translated word, 0 = none
};

constexpr StatusWord kStatusWords[] = {
    {"N/A", "N/A", 0},
    {"Ok", "Ok", kStringStatusOk},
    {"Warning", "Warning", kStringStatusWarning},
    {"Critical", "Critical", kStringStatusError},
    {"N/A", "Not Present", 0},
    {"N/A", "Not Manageable", 0},
};

const StatusWord& WordOf(unsigned char status) {
    return kStatusWords[status < std::size(kStatusWords) ? status : 0];
}

}  // namespace

/// What a mail is about, for the variables that only some mails have.
struct CAlertMailTexts::Topic {
    enum class Kind { Any, Status, Update };
    Kind kind = Kind::Any;
    unsigned char systemStatus{};
    unsigned char componentStatus{};
    const std::string* componentName = nullptr;
    const std::string* componentDesignation = nullptr;
    const CLogMsgArguments* update = nullptr;
};

struct CAlertMailTexts::Variable {
    const char* token;
    bool (CAlertMailTexts::*value)(const Topic& topic, std::string& value);
    Topic::Kind kind = Topic::Kind::Any;  // the mails that have it
    const char* trace = "Param";
};

// In the order in which they are replaced. $(SystemStatus) of a status mail is the event's, not that of this server.
const CAlertMailTexts::Variable CAlertMailTexts::kVariables[] = {
    {"$(SystemStatus)", &CAlertMailTexts::TopicSystemStatus, Topic::Kind::Status},
    {"$(ComponentName)", &CAlertMailTexts::ComponentName, Topic::Kind::Status},
    {"$(ComponentDesignation)", &CAlertMailTexts::ComponentDesignation, Topic::Kind::Status},
    {"$(ComponentStatus)", &CAlertMailTexts::ComponentStatus, Topic::Kind::Status},
    {"$(UpdateMessage)", &CAlertMailTexts::UpdateMessage, Topic::Kind::Update},
    {"$(Date)", &CAlertMailTexts::Date},
    {"$(Time)", &CAlertMailTexts::Time},
    {"$(HostName)", &CAlertMailTexts::HostName},
    {"$(HostNameFQ)", &CAlertMailTexts::HostNameFQ},
    {"$(HostIPAddress)", &CAlertMailTexts::HostIPAddress},
    {"$(HostIPv4Address)", &CAlertMailTexts::HostIPv4Address},
    {"$(HostIPv6Address)", &CAlertMailTexts::HostIPv6Address},
    {"$(SystemModel)", &CAlertMailTexts::SystemModel},
    {"$(SystemSerialNr)", &CAlertMailTexts::SystemSerialNr},
    {"$(SystemAssetID)", &CAlertMailTexts::SystemAssetID},
    {"$(SystemStatus)", &CAlertMailTexts::SystemStatus},
    // The short variables of the operations-manager console.
    {"$_SRV", &CAlertMailTexts::HostName, Topic::Kind::Any, "Quillon param"},
    {"$_IPA", &CAlertMailTexts::HostIPAddress, Topic::Kind::Any, "Quillon param"},
    {"$_TIM", &CAlertMailTexts::ConsoleTime, Topic::Kind::Any, "Quillon param"},
    {"$_IDN", &CAlertMailTexts::SystemSerialNr, Topic::Kind::Any, "Quillon param"},
};

bool CAlertMailTexts::ContainsVariableName(const CLumeString& text, const char* name) {
    return name != nullptr && CLumeString::ContainsTokenIgnoreCase(text, name);
}

void CAlertMailTexts::Replace(CLumeString& text, const Topic& topic) {
    for (const Variable& variable : kVariables) {
        std::string value;
        const bool isOfMail = variable.kind == Topic::Kind::Any || variable.kind == topic.kind;
        if (isOfMail && ContainsVariableName(text, variable.token) && (this->*variable.value)(topic, value)) {
            EM_TRACE(3, "\nEM_ALERT            : %s %s: \"%s\"", variable.trace, variable.token, value.c_str());
            CLumeString::ReplaceTokenIgnoreCase(text, variable.token, value);
        }
    }
}

void CAlertMailTexts::FormatText(CLumeString& text) {
    Replace(text, Topic());
}

void CAlertMailTexts::FormatSystemStatusText(CLumeString& text, unsigned char systemStatus,
                                             unsigned char componentStatus, const std::string& componentName,
                                             const std::string& componentDesignation) {
    Replace(text, {.kind = Topic::Kind::Status,
                   .systemStatus = systemStatus,
                   .componentStatus = componentStatus,
                   .componentName = &componentName,
                   .componentDesignation = &componentDesignation});
}

void CAlertMailTexts::FormatUpdateStatusText(CLumeString& text, const CLogMsgArguments& arguments) {
    Replace(text, {.kind = Topic::Kind::Update, .update = &arguments});
}

bool CAlertMailTexts::TopicSystemStatus(const Topic& topic, std::string& value) {
    value = SystemStatusWord(topic.systemStatus);
    return true;
}

bool CAlertMailTexts::ComponentName(const Topic& topic, std::string& value) {
    value = *topic.componentName;
    return true;
}

bool CAlertMailTexts::ComponentDesignation(const Topic& topic, std::string& value) {
    value = *topic.componentDesignation;
    return true;
}

bool CAlertMailTexts::ComponentStatus(const Topic& topic, std::string& value) {
    value = ComponentStatusWord(topic.componentStatus);
    return true;
}

bool CAlertMailTexts::UpdateMessage(const Topic& topic, std::string& value) {
    if (!topic.update->IsComplete()) {
        return false;
    }
    const std::uint32_t code = topic.update->ErrorCode();
    EM_TRACE(3, "\nEM_ALERT            : Found variable $(UpdateMessage)");
    EM_TRACE(3, "\nEM_ALERT            : Request message template for update management error code 0x%X", code);
    std::string messageTemplate;
    if (!agent_.RequestMessageTemplate(code, messageTemplate)) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! No message template found for update manager error 0x%X", code);
        return false;
    }
    EM_TRACE(3, "\nEM_ALERT            : Error Code 0x%X: Found message template: \"%s\"", code,
             messageTemplate.c_str());
    value = FormatMessageTemplate(messageTemplate, topic.update->Arguments());
    EM_TRACE(3, "\nEM_ALERT            : Error Code 0x%X: Formatted message: \"%s\"", code, value.c_str());
    return true;
}

void CAlertMailTexts::CreateSystemStatusMail(CSmtpMessage& mail, unsigned char systemStatus,
                                             unsigned char componentStatus, const std::string& componentName,
                                             const std::string& componentDesignation) {
    SetAddresses(mail);
    SetImportance(mail, componentStatus);

    CLumeString subject(settings_.alertSubject);
    FormatSystemStatusText(subject, systemStatus, componentStatus, componentName, componentDesignation);
    EM_TRACE(3, "\nEM_ALERT            : Add mail subject \"%s\"", subject.c_str());
    mail.SetSubject(subject);

    CLumeString text(settings_.alertMessage);
    FormatSystemStatusText(text, systemStatus, componentStatus, componentName, componentDesignation);
    EM_TRACE(3, "\nEM_ALERT            : Add mail text \"%s\"", text.c_str());
    mail.SetText(text);
}

void CAlertMailTexts::CreateUpdateStatusMail(CSmtpMessage& mail, const CLogMsgArguments& arguments) {
    SetAddresses(mail);

    // A subject stays short: the update message is not expanded in it.
    CLumeString subject(settings_.updateSubject);
    FormatText(subject);
    EM_TRACE(3, "\nEM_ALERT            : Add mail subject \"%s\"", subject.c_str());
    mail.SetSubject(subject);

    CLumeString text(settings_.updateMessage);
    FormatUpdateStatusText(text, arguments);
    EM_TRACE(3, "\nEM_ALERT            : Add mail text \"%s\"", text.c_str());
    mail.SetText(text);
}

void CAlertMailTexts::SetAddresses(CSmtpMessage& mail) const {
    mail.SetSender(settings_.senderName.empty() ? settings_.senderAddress
                                                : settings_.senderName + "<" + settings_.senderAddress + ">");
    mail.AddRecipients(settings_.recipients.c_str());
    if (!settings_.recipientsCc.empty()) {
        EM_TRACE(3, "\nEM_ALERT            : Found mail recipients CC");
        mail.AddRecipientsCc(settings_.recipientsCc.c_str());
    }
}

void CAlertMailTexts::SetImportance(CSmtpMessage& mail, unsigned char componentStatus) const {
    switch (settings_.importance) {
        case 1:
            EM_TRACE(3, "\nEM_ALERT            : Set mail importance: Low");
            mail.SetImportance(CSmtpMessageHeader::kLowImportance);
            return;
        case 2:
            EM_TRACE(3, "\nEM_ALERT            : Set mail importance: Normal");
            mail.SetImportance(CSmtpMessageHeader::kNormalImportance);
            return;
        case 3:
            EM_TRACE(3, "\nEM_ALERT            : Set mail importance: High");
            mail.SetImportance(CSmtpMessageHeader::kHighImportance);
            return;
    }
    if (componentStatus == 3) {
        EM_TRACE(3, "\nEM_ALERT            : Set mail importance depending on status %d to High", componentStatus);
        mail.SetImportance(CSmtpMessageHeader::kHighImportance);
    } else if (componentStatus == 1) {
        EM_TRACE(3, "\nEM_ALERT            : Set mail importance depending on component status %d to Low",
                 componentStatus);
        mail.SetImportance(CSmtpMessageHeader::kLowImportance);
    } else {
        EM_TRACE(3, "\nEM_ALERT            : Set mail importance depending on status %d to Normal", componentStatus);
        mail.SetImportance(CSmtpMessageHeader::kNormalImportance);
    }
}

/// Asks for a text in the mail's language, then for the one of no language.
bool CAlertMailTexts::RequestInLanguage(unsigned int opCodeExt, std::string& text) {
    return agent_.RequestText(kReadConfigurationValue, opCodeExt, settings_.language, text) ||
           (settings_.language != 0 && agent_.RequestText(kReadConfigurationValue, opCodeExt, 0, text));
}

std::string CAlertMailTexts::SystemStatusWord(unsigned char status) {
    const StatusWord& row = WordOf(status);
    std::string word = row.system;
    if (row.translation == 0) {
        return word;
    }
    EM_TRACE(3,
             "\nEM_ALERT            : Request translated system status message from Vortal CSV ID 0x%04X with LANGID "
             "0x%X (%d)",
             row.translation, settings_.language, settings_.language);
    if (RequestInLanguage(row.translation, word)) {
        EM_TRACE(
            3, "\nEM_ALERT            : Read system status message for status %d using Vortal OpCodeExt 0x%04X: \"%s\"",
            status, row.translation, word.c_str());
    } else {
        EM_TRACE(
            1, "\nEM_ALERT            : Read system status message for status %d using Vortal OpCodeExt 0x%04X FAILED!",
            status, row.translation);
    }
    return word;
}

std::string CAlertMailTexts::ComponentStatusWord(unsigned char status) {
    const StatusWord& row = WordOf(status);
    std::string word = row.component;
    if (row.translation != 0 && RequestInLanguage(row.translation, word)) {
        EM_TRACE(
            3, "\nEM_ALERT            : Read component status string for statud %d using Vortal OpCodeExt 0x%x: \"%s\"",
            status, row.translation, word.c_str());
    }
    return word;
}

std::string CAlertMailTexts::LocalDateOrTime(const char* format, void (*japanForm)(std::string&, std::time_t)) {
    EM_TRACE(3, "\nEM_ALERT            : Reading format date from locale for LANGID 0x%X (%d)", settings_.language,
             settings_.language);
    const std::time_t now = CDateTime::LocalNow();
    std::string text = CDateTime::FormatInLanguage(format, now, settings_.language);
    if (settings_.language == kLanguageJapanese) {
        japanForm(text, now);
    }
    return text;
}

bool CAlertMailTexts::Date(const Topic& /*topic*/, std::string& value) {
    RequestInLanguage(kStringDateFormat, value);
    if (value.empty()) {
        value = LocalDateOrTime("%#x", CDateTime::JapanDate);
    }
    return true;
}

bool CAlertMailTexts::Time(const Topic& /*topic*/, std::string& value) {
    RequestInLanguage(kStringTimeFormat, value);
    if (value.empty()) {
        value = LocalDateOrTime("%#X", CDateTime::JapanTime);
    }
    return true;
}

bool CAlertMailTexts::HostName(const Topic& /*topic*/, std::string& value) {
    utsname names{};
    if (::uname(&names) != 0) {
        return false;
    }
    value = names.nodename;
    CLumeString::TrimLeft(value, " ");
    CLumeString::TrimRight(value, " ");
    return true;
}

bool CAlertMailTexts::HostNameFQ(const Topic& /*topic*/, std::string& value) {
    COsInfo::GetComputerNameEx(value, ComputerNamePhysicalDnsFullyQualified);
    return true;
}

bool CAlertMailTexts::HostIPAddress(const Topic& /*topic*/, std::string& value) {
    CIPAddress address;
    if (CHostIPAddress::GetHostIPv4Address(address, 0) || CHostIPAddress::GetHostIPv6Address(address, 0)) {
        value = address.GetString();
    }
    return true;
}

bool CAlertMailTexts::HostIPv4Address(const Topic& /*topic*/, std::string& value) {
    CIPAddress address;
    if (CHostIPAddress::GetHostIPv4Address(address, 0)) {
        value = address.GetString();
    }
    return true;
}

bool CAlertMailTexts::HostIPv6Address(const Topic& /*topic*/, std::string& value) {
    CIPAddress address;
    if (CHostIPAddress::GetHostIPv6Address(address, 0)) {
        value = address.GetString();
    }
    return true;
}

bool CAlertMailTexts::SystemModel(const Topic& /*topic*/, std::string& value) {
    agent_.RequestText(kReadSystemInformation, kSystemModel, 0, value);
    return true;
}

bool CAlertMailTexts::SystemSerialNr(const Topic& /*topic*/, std::string& value) {
    agent_.RequestText(kReadSystemInformation, kSystemSerialNumber, 0, value);
    return true;
}

bool CAlertMailTexts::SystemAssetID(const Topic& /*topic*/, std::string& value) {
    agent_.RequestText(kReadConfigurationValue, kSystemAssetTag, 0, value);
    return true;
}

bool CAlertMailTexts::SystemStatus(const Topic& /*topic*/, std::string& value) {
    unsigned int status{};
    if (agent_.RequestNumber(kReadSystemStatus, 0, 0, status)) {
        value = SystemStatusWord(status > 0xFF ? 0 : static_cast<unsigned char>(status));
    }
    return true;
}

bool CAlertMailTexts::ConsoleTime(const Topic& /*topic*/, std::string& value) {
    value = CDateTime::Format("%Y-%m-%d-%H.%M.%S", CDateTime::LocalNow());
    return true;
}
