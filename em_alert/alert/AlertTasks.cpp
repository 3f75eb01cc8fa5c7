// SPDX-License-Identifier: Apache-2.0
#include "em_alert/alert/AlertTasks.h"

#include <iterator>

#include "em_alert/alert/AlertMailer.h"
#include "platform/diagnostics/Trace.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

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

void AnswerAlertSupported(SipJson& request) {
    EM_TRACE(3, "\nEM_ALERT            : Process CM_AlerterAlertSupported");
    if (request.GetElem("OE") > kUpdateStatusMail) {
        request.SetStatus(kNotHandled);
    } else {
        request.SetDataUIntValue(1, kDone);
    }
}

}  // namespace

void CAlertTasks::Execute(SipJson& request) {
    const unsigned int opCode = request.GetElem("OC");
    if (opCode == CM_AlerterAlertSupported) {
        AnswerAlertSupported(request);
    } else if (opCode == CM_AlerterSendTestMail) {
        SendTestMail(request);
    } else if (opCode == CM_SendMail) {
        SendMail(request);
    } else {
        request.SetStatus(kNotHandled);
    }
}

void CAlertTasks::SendTestMail(SipJson& request) {
    EM_TRACE(3, "\nEM_ALERT            : Process CM_AlerterSendTestMail");
    constexpr unsigned char kCritical = 3;
    mailSettings_.ReadWhenDue();
    CSmtpMessage mail;
    switch (request.GetElem("OE")) {
        case kSystemStatusMail:
            EM_TRACE(3, "\nEM_ALERT            : Generate system status test mail");
            mailer_.Texts().CreateSystemStatusMail(mail, kCritical, kCritical, "Test", "Test Component");
            break;
        case kUpdateStatusMail:
            EM_TRACE(3, "\nEM_ALERT            : Generate update status test mail");
            mailer_.Texts().CreateUpdateStatusMail(mail, CLogMsgArguments());
            break;
        default:
            request.SetDataUIntValue(kMailNotBuilt, kDone);
            return;
    }
    mail.SetSubject("TEST MAIL: " + mail.Subject());
    request.SetDataUIntValue(MapSendResult(mailer_.Send(mail)), kDone);
}

void CAlertTasks::SendMail(SipJson& request) {
    EM_TRACE(3, "\nEM_ALERT            : Process CM_SendMail");
    mailSettings_.ReadWhenDue();
    std::string mailText;
    request.GetCmdDataString(request.GetCmdIndex(), mailText, SipJson::kNoLimit);
    CSmtpMessage mail;
    mail.SetSmtpMessage(mailText.c_str());

    CLumeString subject(mail.Subject());
    mailer_.Texts().FormatText(subject);
    mail.SetSubject(subject);
    CLumeString text(mail.Text());
    mailer_.Texts().FormatText(text);
    mail.SetText(text);
    if (mail.Sender().empty()) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! CM_SendMail - missing parameter: email sender!");
        request.SetStatus(kMissingMailData);
        return;
    }
    const int result = mailer_.Send(mail);
    request.SetDataIntValue(result, result == 0 ? kDone : kFailed);
}
