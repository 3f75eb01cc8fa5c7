#include "mail/AlertMailTexts.h"

#include <sys/utsname.h>

#include "mail/DateTime.h"
#include "platform/HostIpAddress.h"
#include "platform/OsInfo.h"
#include "platform/Trace.h"

namespace {

constexpr char kDateToken[] = "$(Date)";
constexpr char kTimeToken[] = "$(Time)";
constexpr char kSystemStatusToken[] = "$(SystemStatus)";
constexpr char kUpdateMessageToken[] = "$(UpdateMessage)";

// Requests to the agent.
constexpr unsigned int kReadConfigurationValue = 0xE001;
constexpr unsigned int kReadSystemStatus = 0x230F;
constexpr unsigned int kReadSystemInformation = 0x0C00;

struct StatusWord {
    const char* system;
    const char* component;
    unsigned int translation;  // id of the translated word, 0 = none
};

constexpr StatusWord kStatusWords[] = {
    {"N/A", "N/A", 0},
    {"Ok", "Ok", 0x0421},
    {"Warning", "Warning", 0x0422},
    {"Critical", "Critical", 0x0423},
    {"N/A", "Not Present", 0},
    {"N/A", "Not Manageable", 0},
};

const StatusWord& WordOf(unsigned char status) {
    return kStatusWords[status < std::size(kStatusWords) ? status : 0];
}

}  // namespace

struct CAlertMailTexts::Variable {
    const char* token;
    bool (CAlertMailTexts::*value)(std::string&);
    bool isConsoleForm;  // a short variable of the operations-manager console
};

const CAlertMailTexts::Variable CAlertMailTexts::kVariables[] = {
    {kDateToken, &CAlertMailTexts::Date, false},
    {kTimeToken, &CAlertMailTexts::Time, false},
    {"$(HostName)", &CAlertMailTexts::HostName, false},
    {"$(HostNameFQ)", &CAlertMailTexts::HostNameFQ, false},
    {"$(HostIPAddress)", &CAlertMailTexts::HostIPAddress, false},
    {"$(HostIPv4Address)", &CAlertMailTexts::HostIPv4Address, false},
    {"$(HostIPv6Address)", &CAlertMailTexts::HostIPv6Address, false},
    {"$(SystemModel)", &CAlertMailTexts::SystemModel, false},
    {"$(SystemSerialNr)", &CAlertMailTexts::SystemSerialNr, false},
    {"$(SystemAssetID)", &CAlertMailTexts::SystemAssetID, false},
    {kSystemStatusToken, &CAlertMailTexts::SystemStatus, false},
    {"$_SRV", &CAlertMailTexts::HostName, true},
    {"$_IPA", &CAlertMailTexts::HostIPAddress, true},
    {"$_TIM", &CAlertMailTexts::ConsoleTime, true},
    {"$_IDN", &CAlertMailTexts::SystemSerialNr, true},
};

bool CAlertMailTexts::ContainsVariableName(const CLumeString& text, const char* name) {
    return name != nullptr && CLumeString::ContainsTokenIgnoreCase(text, name);
}

void CAlertMailTexts::Replace(CLumeString& text, const char* token, const std::string& value) {
    EM_TRACE(3, "\nEM_ALERT            : Param %s: \"%s\"", token, value.c_str());
    CLumeString::ReplaceTokenIgnoreCase(text, token, value);
}

void CAlertMailTexts::FormatText(CLumeString& text) {
    for (const Variable& variable : kVariables) {
        std::string value;
        if (!ContainsVariableName(text, variable.token) || !(this->*variable.value)(value)) {
            continue;
        }
        if (variable.isConsoleForm) {
            EM_TRACE(3, "\nEM_ALERT            : Quillon param %s: \"%s\"", variable.token, value.c_str());
            CLumeString::ReplaceTokenIgnoreCase(text, variable.token, value);
        } else {
            Replace(text, variable.token, value);
        }
    }
}

void CAlertMailTexts::FormatSystemStatusText(CLumeString& text, unsigned char systemStatus,
                                             unsigned char componentStatus, const std::string& componentName,
                                             const std::string& componentDesignation) {
    if (ContainsVariableName(text, kSystemStatusToken)) {
        Replace(text, kSystemStatusToken, SystemStatusWord(systemStatus));
    }
    if (ContainsVariableName(text, "$(ComponentName)")) {
        Replace(text, "$(ComponentName)", componentName);
    }
    if (ContainsVariableName(text, "$(ComponentDesignation)")) {
        Replace(text, "$(ComponentDesignation)", componentDesignation);
    }
    if (ContainsVariableName(text, "$(ComponentStatus)")) {
        Replace(text, "$(ComponentStatus)", ComponentStatusWord(componentStatus));
    }
    FormatText(text);
}

void CAlertMailTexts::FormatUpdateStatusText(CLumeString& text, const CLogMsgArguments& arguments) {
    if (ContainsVariableName(text, kUpdateMessageToken) && arguments.IsComplete()) {
        const std::uint32_t code = arguments.ErrorCode();
        EM_TRACE(3, "\nEM_ALERT            : Found variable $(UpdateMessage)");
        EM_TRACE(3, "\nEM_ALERT            : Request message template for update management error code 0x%X", code);
        std::string messageTemplate;
        if (agent_.RequestMessageTemplate(code, messageTemplate)) {
            Replace(text, kUpdateMessageToken, UpdateMessage(arguments, messageTemplate));
        } else {
            EM_TRACE(1, "\nEM_ALERT            : ERROR! No message template found for update manager error 0x%X", code);
        }
    }
    FormatText(text);
}

std::string CAlertMailTexts::UpdateMessage(const CLogMsgArguments& arguments,
                                           const std::string& messageTemplate) const {
    const std::uint32_t code = arguments.ErrorCode();
    EM_TRACE(3, "\nEM_ALERT            : Error Code 0x%X: Found message template: \"%s\"", code,
             messageTemplate.c_str());
    std::string message = FormatMessageTemplate(messageTemplate, arguments.Arguments());
    EM_TRACE(3, "\nEM_ALERT            : Error Code 0x%X: Formatted message: \"%s\"", code, message.c_str());
    return message;
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
        default:
            break;
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

bool CAlertMailTexts::Date(std::string& value) {
    RequestInLanguage(0x0424, value);
    if (value.empty()) {
        value = LocalDateOrTime("%#x", CDateTime::JapanDate);
    }
    return true;
}

bool CAlertMailTexts::Time(std::string& value) {
    RequestInLanguage(0x0425, value);
    if (value.empty()) {
        value = LocalDateOrTime("%#X", CDateTime::JapanTime);
    }
    return true;
}

bool CAlertMailTexts::HostName(std::string& value) {
    utsname names{};
    if (::uname(&names) != 0) {
        return false;
    }
    value = names.nodename;
    CLumeString::TrimLeft(value, " ");
    CLumeString::TrimRight(value, " ");
    return true;
}

bool CAlertMailTexts::HostNameFQ(std::string& value) {
    COsInfo::GetComputerNameEx(value, ComputerNamePhysicalDnsFullyQualified);
    return true;
}

bool CAlertMailTexts::HostIPAddress(std::string& value) {
    CIPAddress address;
    if (CHostIPAddress::GetHostIPv4Address(address, 0) || CHostIPAddress::GetHostIPv6Address(address, 0)) {
        value = address.GetString();
    }
    return true;
}

bool CAlertMailTexts::HostIPv4Address(std::string& value) {
    CIPAddress address;
    if (CHostIPAddress::GetHostIPv4Address(address, 0)) {
        value = address.GetString();
    }
    return true;
}

bool CAlertMailTexts::HostIPv6Address(std::string& value) {
    CIPAddress address;
    if (CHostIPAddress::GetHostIPv6Address(address, 0)) {
        value = address.GetString();
    }
    return true;
}

bool CAlertMailTexts::SystemModel(std::string& value) {
    agent_.RequestText(kReadSystemInformation, 0x1508, 0, value);
    return true;
}

bool CAlertMailTexts::SystemSerialNr(std::string& value) {
    agent_.RequestText(kReadSystemInformation, 0x0600, 0, value);
    return true;
}

bool CAlertMailTexts::SystemAssetID(std::string& value) {
    agent_.RequestText(kReadConfigurationValue, 0x0210, 0, value);
    return true;
}

bool CAlertMailTexts::SystemStatus(std::string& value) {
    unsigned int status = 0;
    if (agent_.RequestNumber(kReadSystemStatus, 0, 0, status)) {
        value = SystemStatusWord(status > 0xFF ? 0 : static_cast<unsigned char>(status));
    }
    return true;
}

bool CAlertMailTexts::ConsoleTime(std::string& value) {
    value = CDateTime::Format("%Y-%m-%d-%H.%M.%S", CDateTime::LocalNow());
    return true;
}
