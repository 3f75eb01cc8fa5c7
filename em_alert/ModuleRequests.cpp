#include <algorithm>

#include "em_alert/AlertExtensionModule.h"
#include "platform/Cancellation.h"
#include "platform/Trace.h"

struct CAlertExtensionModule::RequestRow {
    unsigned int opCode;
    void (CAlertExtensionModule::*answer)(SipJson&);
};

// What is not in the table is answered with kNotHandled.
const CAlertExtensionModule::RequestRow CAlertExtensionModule::kRequests[] = {
    {kPendingAlert, &CAlertExtensionModule::AnswerPendingAlerts},
    {kAcknowledgeAlerts, &CAlertExtensionModule::AnswerAcknowledge},
    {CM_AlerterSendTestMail, &CAlertExtensionModule::QueueRequest},
    {CM_AlerterAlertSupported, &CAlertExtensionModule::QueueRequest},
    {CM_SendMail, &CAlertExtensionModule::QueueSendMail},
    {kReadConfigurationValue, &CAlertExtensionModule::AnswerReadConfiguration},
    {kWriteConfigurationValue, &CAlertExtensionModule::AnswerWriteConfiguration},
};

bool CAlertExtensionModule::ModuleRequest(SipJson& message) {
    try {
        TraceRequestIn(message, 2);
        message.SetStatus(kValueNotAvailable);
        if (!IsLocalServerRequest(message)) {
            message.SetStatus(kNotForLocalServer);
            return false;
        }
        DispatchRequest(message);
    } catch (...) {
        LetCancellationPass();
        TrySetStatus(message, kException);
        const int command = message.GetCmdIndex();
        EM_TRACE(1, "\nEM_ALERT (REQUEST)  : ## EXCEPTION! CABID %04d: OpCode 0x%04X-0x%04X ObjId 0x%04X Status 0x%02X",
                 static_cast<int>(message.GetCmdElemValue(command, "CA", 0)), message.GetCmdElemValue(command, "OC", 0),
                 message.GetCmdElemValue(command, "OE", 0), message.GetCmdElemValue(command, "OI", 0),
                 message.GetCmdElemValue(command, "ST", kException));
    }
    TraceRequestOut(message, 2);
    return true;
}

void CAlertExtensionModule::TrySetStatus(SipJson& message, unsigned int status) noexcept {
    const CCancellationPause pause;
    try {
        message.SetStatus(status);
    } catch (...) {
        EM_TRACE(1, "\nEM_ALERT            : ## EXCEPTION while setting status %d! ##", static_cast<int>(status));
    }
}

void CAlertExtensionModule::DispatchRequest(SipJson& request) {
    const unsigned int opCode = request.GetCmdElemValue(request.GetCmdIndex(), "OC", 0);
    const auto* row = std::find_if(std::begin(kRequests), std::end(kRequests),
                                   [opCode](const RequestRow& r) { return r.opCode == opCode; });
    if (row == std::end(kRequests)) {
        request.SetStatus(kNotHandled);
        return;
    }
    (this->*row->answer)(request);
}

void CAlertExtensionModule::AnswerPendingAlerts(SipJson& request) {
    request.SetDataByte(IsAlertPending() ? 1 : 0, kDone);
}

void CAlertExtensionModule::AnswerAcknowledge(SipJson& request) {
    request.SetDataByte(AcknowledgeAlert(request) ? 1 : 0, kDone);
}

/// Leaves the request to the worker, which answers it through the switch.
void CAlertExtensionModule::QueueRequest(SipJson& request) {
    request.SetStatus(InsertTask(request, 0, nullptr) ? kAnswerFollows : kFailed);
}

void CAlertExtensionModule::QueueSendMail(SipJson& request) {
    const int command = request.GetCmdIndex();
    if (request.GetCmdDataType(command) == rapidjson::kNumberType || request.GetCmdDataSize(command) != 0) {
        QueueRequest(request);
    } else {
        request.SetStatus(kMissingMailData);
    }
}

void CAlertExtensionModule::AnswerReadConfiguration(SipJson& request) {
    mailSettings_.AnswerRead(request);
}

void CAlertExtensionModule::AnswerWriteConfiguration(SipJson& request) {
    mailSettings_.AnswerWrite(request);
}
