#include "em_alert/AlertExtensionModule.h"
#include "platform/Trace.h"

bool CAlertExtensionModule::BeepSequenceOn(AlerterSeverity severity) {
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
    if (sequence.empty()) {
        BeepSequenceOff();
        return false;
    }
    return beeper_.Start(sequence);
}

void CAlertExtensionModule::BeepSequenceOff() {
    EM_TRACE(2, "\nEM_ALERT            : Stop beep tone sequence");
    beeper_.Stop();
}

/// @param isKept  the alert is, or was, in the list; one that could not be kept is heard until the beep is switched off
void CAlertExtensionModule::BeepForAlert(AlerterSeverity severity, bool isKept) {
    const CMutexLock lock(beepLock_);
    if (!settings_.Get()->beepAlertEnabled) {
        return;
    }
    EM_TRACE(2, "\nEM_ALERT            : Process beep alert for severity %d", static_cast<int>(severity));
    if (isKept) {
        BeepWhilePending(severity);
    } else if (severity != AlerterSeverityOk || pendingAlerts_.Count() == 0) {  // else: an alert came since it was OK
        BeepSequenceOn(severity);
    }
}

/// Plays the sequence of an alert from the list. Somebody may have acknowledged it already, from within the delivery of
/// its own event for one, when there was nothing to stop yet.
void CAlertExtensionModule::BeepWhilePending(AlerterSeverity severity) {
    BeepSequenceOn(severity);
    if (pendingAlerts_.Count() == 0) {
        BeepSequenceOff();
    }
}

/// After an acknowledgement. An alert that came since then keeps its tones.
void CAlertExtensionModule::StopBeepWhenNonePends() {
    const CMutexLock lock(beepLock_);
    if (settings_.Get()->beepAlertEnabled && pendingAlerts_.Count() == 0) {
        EM_TRACE(2, "\nEM_ALERT            : Stop system speaker sound!");
        beeper_.Stop();
    }
}

/// Stores the beep switch and lets the speaker follow it at once while alerts are pending.
void CAlertExtensionModule::FollowBeepSwitch(const SettingRow& row, const SettingValue& value) {
    const CCriticalSectionLock list(pendingAlerts_.Lock());
    const CMutexLock lock(beepLock_);
    const bool isEnabled = value.number != 0;
    const bool isChange = IsAlertPending() && isEnabled != settings_.Get()->beepAlertEnabled;
    settings_.Change([&](AlertSettings& settings) { row.Store(settings, value); });
    if (isChange && isEnabled) {
        EM_TRACE(3, "\nEM_ALERT (REPLY)    : Beep alert configuration changed from disabled to enabled");
        SipJson newest;
        unsigned int status = 0;
        if (GetLastPendingAlert(newest)) {
            newest.GetCmdUIntData(newest.GetCmdIndex(), status);
        }
        BeepWhilePending(SystemStatusToAlertSeverity(ToStatusByte(status)));
    } else if (isChange) {
        EM_TRACE(3, "\nEM_ALERT (REPLY)    : Beep alert configuration changed from enabled to disabled");
        BeepSequenceOff();
    } else if (!isEnabled) {
        beeper_.Stop();  // an alert that could not be kept, or one that is being acknowledged, may sound
    }
}
