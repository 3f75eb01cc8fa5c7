// SPDX-License-Identifier: Apache-2.0
#include "em_alert/alert/AlertBeeper.h"

#include "em_alert/alert/PendingAlerts.h"
#include "em_alert/values/AgentLink.h"
#include "platform/diagnostics/Trace.h"

bool CAlertBeeper::SequenceOn(AlerterSeverity severity) {
    EM_TRACE(2, "\nEM_ALERT            : Beep tone for severity %d", static_cast<int>(severity));
    if (severity == AlerterSeverityUnknown) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! Unknwon alert severity not handled!");
        return false;
    }
    const auto settings = settings_.Get();
    std::vector<unsigned char> sequence;
    if (severity == AlerterSeverityWarning) {
        EM_TRACE(2, "\nEM_ALERT            : Play beep tone warning sequence");
        sequence = settings->beepWarningSequence;
    } else if (severity == AlerterSeverityError) {
        EM_TRACE(2, "\nEM_ALERT            : Play beep tone error sequence");
        sequence = settings->beepErrorSequence;
    }
    if (sequence.empty()) {  // all is well
        SequenceOff();
        return false;
    }
    return player_.Start(sequence);
}

void CAlertBeeper::SequenceOff() {
    EM_TRACE(2, "\nEM_ALERT            : Stop beep tone sequence");
    player_.Stop();
}

void CAlertBeeper::FollowStatus(AlerterSeverity severity, bool isKept) {
    const CMutexLock lock(lock_);
    if (!settings_.Get()->beepAlertEnabled) {
        return;
    }
    EM_TRACE(2, "\nEM_ALERT            : Process beep alert for severity %d", static_cast<int>(severity));
    if (isKept) {
        PlayWhilePending(severity);
    } else if (severity != AlerterSeverityOk || pendingAlerts_.Count() == 0) {  // else: an alert came since it was OK
        SequenceOn(severity);
    }
}

/// Plays the sequence of an alert from the list. Somebody may have acknowledged it already, from within the delivery of
/// its own event for one, when there was nothing to stop yet.
void CAlertBeeper::PlayWhilePending(AlerterSeverity severity) {
    SequenceOn(severity);
    if (pendingAlerts_.Count() == 0) {
        SequenceOff();
    }
}

void CAlertBeeper::StopWhenNonePends() {
    const CMutexLock lock(lock_);
    if (settings_.Get()->beepAlertEnabled && pendingAlerts_.Count() == 0) {
        EM_TRACE(2, "\nEM_ALERT            : Stop system speaker sound!");
        player_.Stop();
    }
}

void CAlertBeeper::FollowSwitch(bool isEnabled) {
    const CCriticalSectionLock list(pendingAlerts_.Lock());
    const CMutexLock lock(lock_);
    const bool isChange = pendingAlerts_.IsAnyPending() && isEnabled != settings_.Get()->beepAlertEnabled;
    settings_.Change([=](AlertSettings& settings) { settings.beepAlertEnabled = isEnabled; });
    if (isChange && isEnabled) {
        EM_TRACE(3, "\nEM_ALERT (REPLY)    : Beep alert configuration changed from disabled to enabled");
        if (SipJson newest; pendingAlerts_.GetNewest(newest)) {
            PlayWhilePending(CAlertPolicy::OfSystemStatus(ToStatusByte(DataNumber(newest))));
        }
    } else if (isChange) {
        EM_TRACE(3, "\nEM_ALERT (REPLY)    : Beep alert configuration changed from enabled to disabled");
        SequenceOff();
    } else if (!isEnabled) {
        player_.Stop();  // an alert that could not be kept, or one that is being acknowledged, may sound
    }
}
