// SPDX-License-Identifier: Apache-2.0
#include "em_alert/alert/AlertPolicy.h"

#include <iterator>

#include "em_alert/values/AlertSettings.h"

namespace {

// The error code of an update record: its class in the upper half, its kind in these bits of the lower one.
constexpr unsigned int kUpdateManagerClass = 0x29;
constexpr unsigned int kUpdateKindMask = 0xF0;
constexpr unsigned int kNewUpdates = 0x00;
constexpr unsigned int kJobFinished = 0x10;

}  // namespace

AlerterSeverity CAlertPolicy::OfSystemStatus(unsigned char status) {
    constexpr AlerterSeverity kSeverities[] = {AlerterSeverityUnknown, AlerterSeverityOk, AlerterSeverityWarning,
                                               AlerterSeverityError};
    return status < std::size(kSeverities) ? kSeverities[status] : AlerterSeverityUnknown;
}

AlerterSeverity CAlertPolicy::OfLogMessage(unsigned char severity) {
    constexpr AlerterSeverity kSeverities[] = {AlerterSeverityOk, AlerterSeverityWarning, AlerterSeverityError,
                                               AlerterSeverityError};
    return severity < std::size(kSeverities) ? kSeverities[severity] : AlerterSeverityUnknown;
}

CAlertPolicy::StatusMail CAlertPolicy::DecideStatusMail(AlerterSeverity systemSeverity, unsigned int componentStatus,
                                                        const AlertSettings& settings) {
    if (systemSeverity == AlerterSeverityUnknown) {
        return StatusMail::UnknownSeverity;
    }
    return settings.mailAlertSeverity > componentStatus ? StatusMail::BelowSeverity : StatusMail::Send;
}

bool CAlertPolicy::IsUpdateManagerCode(std::uint32_t errorCode) {
    return errorCode >> 16 == kUpdateManagerClass;
}

CAlertPolicy::UpdateMail CAlertPolicy::DecideUpdateMail(std::uint32_t errorCode, const AlertSettings& settings) {
    const unsigned int kind = errorCode & kUpdateKindMask;
    if (settings.ConfUpdAlertNewUpdates && kind == kNewUpdates) {
        return UpdateMail::NewUpdates;
    }
    return settings.ConfUpdAlertJobFinished && kind == kJobFinished ? UpdateMail::JobFinished : UpdateMail::None;
}
