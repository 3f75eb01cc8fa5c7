// SPDX-License-Identifier: Apache-2.0
#include "em_alert/alert/AlertTrigger.h"

#include <exception>
#include <utility>
#include <vector>

#include "em_alert/alert/AlertBeeper.h"
#include "em_alert/alert/AlertMailer.h"
#include "em_alert/alert/PendingAlerts.h"
#include "em_alert/values/AgentLink.h"
#include "platform/Cancellation.h"
#include "platform/diagnostics/Trace.h"

void CAlertTrigger::Process(const SipJson& event) {
    const unsigned int opCode = event.GetElem("OC");
    EM_TRACE(3, "\nEM_ALERT (REPLY)    : Process alert: CABID %04d: OC 0x%04X-0x%04X OID 0x%04X Stat 0x%02X",
             static_cast<int>(event.GetElem("CA")), opCode, event.GetElem("OE"), event.GetElem("OI"),
             event.GetCmdElemValue(event.GetCmdIndex(), "ST", kNoStatus));
    if (opCode == CM_StatusTreeComponentInstanceStatus) {
        ProcessComponentStatus(event);
    } else if (opCode == CM_UmServerUpdateAlert) {
        ProcessUpdateAlert(event);
    }
}

void CAlertTrigger::ProcessComponentStatus(const SipJson& event) {
    EM_TRACE(3, "\nEM_ALERT (REPLY)    : Handle CM_StatusTreeComponentInstanceStatus");
    const unsigned char systemStatus = link_.RequestSystemStatus(
        event.GetCmdElemValue(event.GetCmdIndex(), "CA", CExtensionModule::ServerCabinetNumber()));
    const AlerterSeverity severity = CAlertPolicy::OfSystemStatus(systemStatus);

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
    bool isKept{};
    attempt([&] { isKept = FollowPendingAlerts(event, severity); });
    attempt([&] { beeper_.FollowStatus(severity, isKept); });
    if (const auto settings = settings_.Get(); settings->mailForStatusAlertEnabled) {
        attempt([&] { MailSystemStatus(event, systemStatus, *settings); });
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}

/// Keeps the event as a pending alert, or clears the list when all is well again.
/// @return whether the event was kept
bool CAlertTrigger::FollowPendingAlerts(const SipJson& event, AlerterSeverity severity) {
    switch (severity) {
        case AlerterSeverityWarning:
            EM_TRACE(2, "\nEM_ALERT            : Add warning alert to be acknowledged");
            break;
        case AlerterSeverityError:
            EM_TRACE(2, "\nEM_ALERT            : Add error alert to be acknowledged");
            break;
        case AlerterSeverityOk:
            EM_TRACE(2, "\nEM_ALERT            : System status OK - clear pending alerts");
            pendingAlerts_.Clear();
            return false;
        case AlerterSeverityUnknown:
            return false;
    }
    pendingAlerts_.Add(event);
    return true;
}

void CAlertTrigger::MailSystemStatus(const SipJson& event, unsigned char systemStatus, const AlertSettings& settings) {
    const unsigned int componentStatus = DataNumber(event);
    const auto decision =
        CAlertPolicy::DecideStatusMail(CAlertPolicy::OfSystemStatus(systemStatus), componentStatus, settings);
    if (decision == CAlertPolicy::StatusMail::UnknownSeverity) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! Mail alert skipped - unknown alert severity!");
    } else if (decision == CAlertPolicy::StatusMail::BelowSeverity) {
        EM_TRACE(2,
                 "\nEM_ALERT            : eMail alert skipped - component status severity is lower than configured "
                 "severity level");
    } else {
        mailer_.MailStatus(event, systemStatus, componentStatus);
    }
}

void CAlertTrigger::ProcessUpdateAlert(const SipJson& event) {
    EM_TRACE(3, "\nEM_ALERT (REPLY)    : Handle CM_UmServerUpdateAlert");
    std::vector<unsigned char> data;
    if (!event.GetCmdDataStream(event.GetCmdIndex(), data)) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! Event CM_UmServerUpdateAlert missing event data");
        return;
    }
    const CLogMsgArguments record(std::move(data));
    if (!record.IsComplete()) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! Event CM_UmServerUpdateAlert illegal event data size %d",
                 static_cast<int>(record.Bytes().size()));
        return;
    }
    const std::uint32_t code = record.ErrorCode();
    EM_TRACE(3, "\nEM_ALERT            : Error Code: 0x%X (Class: 0x%02X Detail: 0x%02X)", code, code >> 16,
             code & 0xFFFF);
    if (CAlertPolicy::IsUpdateManagerCode(code) && IsUpdateMailWanted(code)) {
        mailer_.MailUpdate(record);
    }
}

bool CAlertTrigger::IsUpdateMailWanted(unsigned int errorCode) const {
    const auto settings = settings_.Get();
    EM_TRACE(4, "\nEM_ALERT            : Received 'Update Manager' error code");
    // People and scripts know the inverted wording: "NOT " stands where the mails are switched on.
    EM_TRACE(3, "\nEM_ALERT            : eMail notifications for new updates are %senabled!",
             settings->ConfUpdAlertNewUpdates ? "NOT " : "");
    EM_TRACE(3, "\nEM_ALERT            : eMail notifications for finished updates are %senabled!",
             settings->ConfUpdAlertJobFinished ? "NOT " : "");
    switch (CAlertPolicy::DecideUpdateMail(errorCode, *settings)) {
        case CAlertPolicy::UpdateMail::NewUpdates:
            EM_TRACE(2, "\nEM_ALERT            : Send eMail for new available updates");
            break;
        case CAlertPolicy::UpdateMail::JobFinished:
            EM_TRACE(2, "\nEM_ALERT            : Send eMail for update job execution state");
            break;
        case CAlertPolicy::UpdateMail::None:
            return false;
    }
    return true;
}
