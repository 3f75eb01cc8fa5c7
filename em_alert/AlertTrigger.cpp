#include <algorithm>
#include <exception>

#include "em_alert/AlertExtensionModule.h"
#include "platform/Cancellation.h"
#include "platform/Trace.h"

namespace {

constexpr unsigned int kUpdateManagerClass = 0x29;
constexpr unsigned int kUpdateKindMask = 0xF0;
constexpr unsigned int kNewUpdates = 0x00;
constexpr unsigned int kJobFinished = 0x10;

/// "ST" of a reply that holds the system status.
bool IsUsableReply(unsigned int status) {
    return status == 0 || status == 12 || status == 21 || status == 255;
}

unsigned int DataNumber(const SipJson& message) {
    unsigned int number = 0;
    message.GetCmdUIntData(message.GetCmdIndex(), number);
    return number;
}

}  // namespace

CAlertExtensionModule::AlerterSeverity CAlertExtensionModule::SystemStatusToAlertSeverity(unsigned char status) {
    constexpr AlerterSeverity kSeverities[] = {AlerterSeverityUnknown, AlerterSeverityOk, AlerterSeverityWarning,
                                               AlerterSeverityError};
    return status < std::size(kSeverities) ? kSeverities[status] : AlerterSeverityUnknown;
}

CAlertExtensionModule::AlerterSeverity CAlertExtensionModule::LogMsgSeverityToAlertSeverity(unsigned char severity) {
    constexpr AlerterSeverity kSeverities[] = {AlerterSeverityOk, AlerterSeverityWarning, AlerterSeverityError,
                                               AlerterSeverityError};
    return severity < std::size(kSeverities) ? kSeverities[severity] : AlerterSeverityUnknown;
}

void CAlertExtensionModule::ProcessAlertTrigger(SipJson& event) {
    const int command = event.GetCmdIndex();
    const unsigned int opCode = event.GetCmdElemValue(command, "OC", 0);
    EM_TRACE(3, "\nEM_ALERT (REPLY)    : Process alert: CABID %04d: OC 0x%04X-0x%04X OID 0x%04X Stat 0x%02X",
             static_cast<int>(event.GetCmdElemValue(command, "CA", 0)), opCode, event.GetCmdElemValue(command, "OE", 0),
             event.GetCmdElemValue(command, "OI", 0), event.GetCmdElemValue(command, "ST", kNoStatus));
    if (opCode == CM_StatusTreeComponentInstanceStatus) {
        ProcessComponentStatus(event);
    } else if (opCode == CM_UmServerUpdateAlert) {
        ProcessUpdateAlert(event);
    }
}

void CAlertExtensionModule::ProcessComponentStatus(SipJson& event) {
    EM_TRACE(3, "\nEM_ALERT (REPLY)    : Handle CM_StatusTreeComponentInstanceStatus");
    const unsigned int cabinet = event.GetCmdElemValue(event.GetCmdIndex(), "CA", ServerCabinetNumber());
    const unsigned char systemStatus = ReadSystemStatus(cabinet);
    const AlerterSeverity severity = SystemStatusToAlertSeverity(systemStatus);

    // An alert that cannot be kept (no memory is left) must be heard all the same, and one that cannot be heard mailed.
    std::exception_ptr failure;
    const auto attempt = [&failure](const auto& consequence) {
        try {
            consequence();
        } catch (...) {
            LetCancellationPass();
            failure = std::current_exception();
        }
    };
    // The switches are looked at when their turn comes: an answer, a delivery or a tone's end may have been waited for.
    bool isKept = false;
    attempt([&] { isKept = FollowPendingAlerts(event, severity); });
    attempt([&] { BeepForAlert(severity, isKept); });
    if (const auto settings = settings_.Get(); settings->mailForStatusAlertEnabled) {
        attempt([&] { MailSystemStatus(event, systemStatus, settings->mailAlertSeverity); });
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

/// Keeps the event as a pending alert, or clears the list when all is well again.
/// @return whether the event was kept
bool CAlertExtensionModule::FollowPendingAlerts(SipJson& event, AlerterSeverity severity) {
    if (severity == AlerterSeverityWarning) {
        EM_TRACE(2, "\nEM_ALERT            : Add warning alert to be acknowledged");
        AddPendingAlert(event);
        return true;
    }
    if (severity == AlerterSeverityError) {
        EM_TRACE(2, "\nEM_ALERT            : Add error alert to be acknowledged");
        AddPendingAlert(event);
        return true;
    }
    if (severity == AlerterSeverityOk) {
        EM_TRACE(2, "\nEM_ALERT            : System status OK - clear pending alerts");
        ClearPendingAlerts();
    }
    return false;
}

void CAlertExtensionModule::MailSystemStatus(const SipJson& event, unsigned char systemStatus,
                                             unsigned int leastComponentStatus) {
    const unsigned int componentStatus = DataNumber(event);
    if (SystemStatusToAlertSeverity(systemStatus) == AlerterSeverityUnknown) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! Mail alert skipped - unknown alert severity!");
    } else if (leastComponentStatus > componentStatus) {
        // The component's own status number counts here, not the severity that the system's status maps to.
        EM_TRACE(2,
                 "\nEM_ALERT            : eMail alert skipped - component status severity is lower than configured "
                 "severity level");
    } else {
        SendSystemStatusMail(event, systemStatus, componentStatus);
    }
}

/// @return 0 when the cabinet's system status cannot be had
unsigned char CAlertExtensionModule::ReadSystemStatus(unsigned int cabinet) {
    SipJson request;
    request.SetCmd(request.GetCmd(), kReadSystemStatus, 0, 0, cabinet, kWithoutStatus);
    SyncRequest(request, kRequestTimeout);
    return IsUsableReply(request.GetCmdElemValue(0, "ST", kNoStatus)) ? ToStatusByte(DataNumber(request)) : 0;
}

/// @return empty when the agent has no such text about the event's component
std::string CAlertExtensionModule::RequestComponentText(unsigned int opCode, const SipJson& event) {
    const int command = event.GetCmdIndex();
    SipJson request;
    request.SetCmd(request.GetCmd(), opCode, event.GetCmdElemValue(command, "OE", 0),
                   event.GetCmdElemValue(command, "OI", 0), event.GetCmdElemValue(command, "CA", ServerCabinetNumber()),
                   kWithoutStatus);
    SyncRequest(request, kRequestTimeout);
    std::string text;
    if (request.HasReplyData()) {
        request.GetCmdDataString(0, text, SipJson::kNoLimit);
    }
    return text;
}

void CAlertExtensionModule::SendSystemStatusMail(const SipJson& event, unsigned char systemStatus,
                                                 unsigned int componentStatus) {
    EM_TRACE(2, "\nEM_ALERT            : Generate eMail alert");
    mailSettings_.ReadWhenDue();
    const std::string name = RequestComponentText(kReadComponentName, event);
    const std::string designation = RequestComponentText(kReadComponentDesignation, event);
    CSmtpMessage mail;
    int result = 0;
    if (AlerterCreateSystemStatusMail(mail, systemStatus, ToStatusByte(componentStatus), name.c_str(),
                                      designation.c_str())) {
        result = AlerterSendMail(mail);
    }
    EM_TRACE(2, "\nEM_ALERT            : Send System Status Mail return code: %d", result);
}

void CAlertExtensionModule::ProcessUpdateAlert(const SipJson& event) {
    EM_TRACE(3, "\nEM_ALERT (REPLY)    : Handle CM_UmServerUpdateAlert");
    std::vector<unsigned char> data;
    data.reserve(CLogMsgArguments::kHeaderSize);
    if (!event.GetCmdDataStream(event.GetCmdIndex(), data)) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! Event CM_UmServerUpdateAlert missing event data");
        return;
    }
    const CLogMsgArguments record(std::move(data));
    if (!record.IsComplete()) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! Event CM_UmServerUpdateAlert illegal event data size %d",
                 static_cast<int>(record.Size()));
        return;
    }
    const std::uint32_t code = record.ErrorCode();
    EM_TRACE(3, "\nEM_ALERT            : Error Code: 0x%X (Class: 0x%02X Detail: 0x%02X)", code, code >> 16,
             code & 0xFFFF);
    if (code >> 16 != kUpdateManagerClass || !IsUpdateMailWanted(code)) {
        return;
    }
    mailSettings_.ReadWhenDue();
    CSmtpMessage mail;
    int result = 0;
    if (AlerterCreateUpdateStatusMail(mail, record)) {
        result = AlerterSendMail(mail);
    }
    EM_TRACE(2, "\nEM_ALERT            : Send Update Mail return code: %d", result);
}

bool CAlertExtensionModule::IsUpdateMailWanted(std::uint32_t errorCode) const {
    const auto settings = settings_.Get();
    EM_TRACE(4, "\nEM_ALERT            : Received 'Update Manager' error code");
    // People and scripts know the inverted wording: "NOT " stands where the mails are switched on.
    EM_TRACE(3, "\nEM_ALERT            : eMail notifications for new updates are %senabled!",
             settings->ConfUpdAlertNewUpdates ? "NOT " : "");
    EM_TRACE(3, "\nEM_ALERT            : eMail notifications for finished updates are %senabled!",
             settings->ConfUpdAlertJobFinished ? "NOT " : "");
    const unsigned int kind = errorCode & kUpdateKindMask;
    if (settings->ConfUpdAlertNewUpdates && kind == kNewUpdates) {
        EM_TRACE(2, "\nEM_ALERT            : Send eMail for new available updates");
        return true;
    }
    if (settings->ConfUpdAlertJobFinished && kind == kJobFinished) {
        EM_TRACE(2, "\nEM_ALERT            : Send eMail for update job execution state");
        return true;
    }
    return false;
}
