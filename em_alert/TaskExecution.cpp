#include <algorithm>

#include "em_alert/AlertExtensionModule.h"
#include "platform/Cancellation.h"
#include "platform/Trace.h"

namespace {

enum MailKind : unsigned int {
    kSystemStatusMail = 0,
    kUpdateStatusMail = 1,
};

constexpr unsigned int kMailNotBuilt = 0xFFFFFFFF;

/// The console's numbers for libcurl's result codes 0 to 28; consoles know them, gaps and repeats included.
constexpr unsigned char kSendResults[] = {0,  1,  3,  4,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 26,
                                          17, 18, 19, 20, 21, 22, 23, 24, 25, 27, 1,  1,  1,  18};

/// @param result  of AlerterSendMail; no server tried (-1) and everything beyond the table is the general failure, 1
unsigned int MapSendResult(int result) {
    const auto code = static_cast<unsigned int>(result);
    return code < std::size(kSendResults) ? kSendResults[code] : 1;
}

}  // namespace

/// Carries a queued request out and answers it. Runs on the worker, one task at a time.
void CAlertExtensionModule::OnTaskExecution(SipJson& request, _TaskPriority /*priority*/) {
    try {
        ExecuteTask(request);
    } catch (...) {  // the requester waits for an answer
        LetCancellationPass();
        TrySetStatus(request, kException);
        ReplySip(request);
        throw;
    }
    ReplySip(request);
}

void CAlertExtensionModule::ExecuteTask(SipJson& request) {
    switch (request.GetCmdElemValue(request.GetCmdIndex(), "OC", 0)) {
        case CM_AlerterAlertSupported:
            ExecuteAlertSupported(request);
            break;
        case CM_AlerterSendTestMail:
            ExecuteSendTestMail(request);
            break;
        case CM_SendMail:
            ExecuteSendMail(request);
            break;
        default:
            request.SetStatus(kNotHandled);
            break;
    }
}

void CAlertExtensionModule::ExecuteAlertSupported(SipJson& request) {
    EM_TRACE(3, "\nEM_ALERT            : Process CM_AlerterAlertSupported");
    if (request.GetCmdElemValue(request.GetCmdIndex(), "OE", 0) > kUpdateStatusMail) {
        request.SetStatus(kNotHandled);
    } else {
        request.SetDataUIntValue(1, kDone);
    }
}

void CAlertExtensionModule::ExecuteSendTestMail(SipJson& request) {
    EM_TRACE(3, "\nEM_ALERT            : Process CM_AlerterSendTestMail");
    constexpr unsigned char kCritical = 3;
    mailSettings_.ReadWhenDue();
    CSmtpMessage mail;
    bool isBuilt = false;
    switch (request.GetCmdElemValue(request.GetCmdIndex(), "OE", 0)) {
        case kSystemStatusMail:
            EM_TRACE(3, "\nEM_ALERT            : Generate system status test mail");
            isBuilt = AlerterCreateSystemStatusMail(mail, kCritical, kCritical, "Test", "Test Component");
            break;
        case kUpdateStatusMail:
            EM_TRACE(3, "\nEM_ALERT            : Generate update status test mail");
            isBuilt = AlerterCreateUpdateStatusMail(mail, CLogMsgArguments());
            break;
        default:
            break;
    }
    unsigned int result = kMailNotBuilt;
    if (isBuilt) {
        mail.SetSubject("TEST MAIL: " + mail.Subject());
        result = MapSendResult(AlerterSendMail(mail));
    }
    request.SetDataUIntValue(result, kDone);
}

void CAlertExtensionModule::ExecuteSendMail(SipJson& request) {
    EM_TRACE(3, "\nEM_ALERT            : Process CM_SendMail");
    mailSettings_.ReadWhenDue();
    std::string mailText;
    request.GetCmdDataString(request.GetCmdIndex(), mailText, SipJson::kNoLimit);
    CSmtpMessage mail;
    mail.SetSmtpMessage(mailText.c_str());

    CLumeString subject(mail.Subject());
    if (AlerterFormatText(subject)) {
        mail.SetSubject(subject);
    }
    CLumeString text(mail.Text());
    if (AlerterFormatText(text)) {
        mail.SetText(text);
    }
    if (mail.Sender().empty()) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! CM_SendMail - missing parameter: email sender!");
        request.SetStatus(kMissingMailData);
        return;
    }
    const int result = AlerterSendMail(mail);
    request.SetDataIntValue(result, result == 0 ? kDone : kFailed);
}
