// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "devices/BeepPlayer.h"
#include "em_alert/alert/AlertPolicy.h"
#include "em_alert/values/AlertSettings.h"
#include "platform/Mutex.h"

class CPendingAlerts;

/// What is heard: starts and stops the sequences, by the beep switch and the list of pending alerts. Any thread.
///
/// Its lock is held while somebody looks at switch and list and starts or stops the sequence by it: what the one
/// decided the other sees. It is taken after the list's lock, never before it. Stopping waits for the end of a tone.
class CAlertBeeper {
public:
    CAlertBeeper(CAlertSettingsStore& settings, CPendingAlerts& pendingAlerts)
        : settings_(settings), pendingAlerts_(pendingAlerts) {}

    void Open() { player_.Open(); }

    /// Silent from here on, whatever is asked for.
    void Close() { player_.Close(); }

    /// Plays the severity's sequence, endlessly, instead of whatever plays now.
    /// @return false when nothing was started
    bool SequenceOn(AlerterSeverity severity);

    /// Stops a sequence; the tone that sounds is played to its end first.
    void SequenceOff();

    /// Sounds for a new status of the system; a system that is OK again falls silent.
    /// @param isKept  the alert is, or was, in the list; one that could not be kept is heard until the beep is switched
    ///                off
    void FollowStatus(AlerterSeverity severity, bool isKept);

    /// After an acknowledgement. An alert that came since then keeps its tones.
    void StopWhenNonePends();

    /// Stores the beep switch and lets the speaker follow it at once while alerts are pending.
    void FollowSwitch(bool isEnabled);

private:
    void PlayWhilePending(AlerterSeverity severity) EM_REQUIRES(lock_);

    CAlertSettingsStore& settings_;
    CPendingAlerts& pendingAlerts_;
    CMutex lock_;
    CBeepPlayer player_;
};
