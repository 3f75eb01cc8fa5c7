// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "mail/texts/MailSettings.h"
#include "platform/Mutex.h"

/// The alert settings: a plain value. Whoever works with it takes one snapshot and never mixes two.
struct AlertSettings : MailTemplates {
    bool beepAlertEnabled = false;
    bool mailForStatusAlertEnabled = false;
    bool ConfUpdAlertNewUpdates = false;   ///< mail when new updates are available
    bool ConfUpdAlertJobFinished = false;  ///< mail when an update job has run
    std::uint8_t mailAlertSeverity = 0;    ///< least component status that makes a mail
    std::vector<unsigned char> beepWarningSequence;
    std::vector<unsigned char> beepErrorSequence;

    /// Everything off, the default beep sequences.
    AlertSettings();
};

/// Keeps the settings for all threads: readers get a snapshot for the price of a reference count, a change makes a new
/// value. Any thread.
class CAlertSettingsStore {
public:
    std::shared_ptr<const AlertSettings> Get() const;
    void Change(const std::function<void(AlertSettings&)>& change);

private:
    mutable CMutex lock_;
    std::shared_ptr<const AlertSettings> current_ EM_GUARDED_BY(lock_) = std::make_shared<AlertSettings>();
};
