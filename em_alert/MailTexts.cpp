#include "em_alert/AlertExtensionModule.h"
#include "mail/DateTime.h"

namespace {

std::string OrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

}  // namespace

CAlertMailTexts CAlertExtensionModule::MailTexts() {
    return {MailSettings{mailSettings_.Get()->addresses, *settings_.Get()}, *this};
}

bool CAlertExtensionModule::ContainsVariableName(CLumeString& text, const char* name) {
    return CAlertMailTexts::ContainsVariableName(text, name);
}

std::string& CAlertExtensionModule::SystemStatusToString(std::string& out, unsigned char status) {
    return out = MailTexts().SystemStatusWord(status);
}

std::string& CAlertExtensionModule::ComponentStatusToString(std::string& out, unsigned char status) {
    return out = MailTexts().ComponentStatusWord(status);
}

void CAlertExtensionModule::SetDateTimeLocale(unsigned short languageId) {
    SetTimeLocale(languageId);
}

bool CAlertExtensionModule::AlerterFormatText(CLumeString& text) {
    MailTexts().FormatText(text);
    return true;
}

// NOLINTBEGIN(performance-unnecessary-value-param): the signature is given
bool CAlertExtensionModule::AlerterFormatSystemStatusText(CLumeString& text, unsigned char systemStatus,
                                                          unsigned char componentStatus, std::string componentName,
                                                          std::string componentDesignation) {
    // NOLINTEND(performance-unnecessary-value-param)
    MailTexts().FormatSystemStatusText(text, systemStatus, componentStatus, componentName, componentDesignation);
    return true;
}

bool CAlertExtensionModule::AlerterFormatUpdateStatusText(CLumeString& text, const CLogMsgArguments& arguments) {
    MailTexts().FormatUpdateStatusText(text, arguments);
    return true;
}

bool CAlertExtensionModule::AlerterCreateSystemStatusMail(CSmtpMessage& mail, unsigned char systemStatus,
                                                          unsigned char componentStatus, const char* componentName,
                                                          const char* componentDesignation) {
    MailTexts().CreateSystemStatusMail(mail, systemStatus, componentStatus, OrEmpty(componentName),
                                       OrEmpty(componentDesignation));
    return true;
}

bool CAlertExtensionModule::AlerterCreateUpdateStatusMail(CSmtpMessage& mail, const CLogMsgArguments& arguments) {
    MailTexts().CreateUpdateStatusMail(mail, arguments);
    return true;
}
