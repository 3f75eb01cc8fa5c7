// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

struct AlertSettings;

enum AlerterSeverity : unsigned int {
    AlerterSeverityUnknown = 0,  ///< refused by beep and mail, with an error trace
    AlerterSeverityOk = 1,       ///< clears the pending alerts, stops a beep sequence
    AlerterSeverityWarning = 2,
    AlerterSeverityError = 3,
};

/// What an event causes, as pure decisions: from an event's numbers and one snapshot of the settings. Who asks carries
/// the consequences out. Any thread.
class CAlertPolicy {
public:
    /// @param status  1 OK, 2 warning, 3 critical
    static AlerterSeverity OfSystemStatus(unsigned char status);

    /// @param severity  0 information, 1 warning, 2 error, 3 fatal
    static AlerterSeverity OfLogMessage(unsigned char severity);

    enum class StatusMail {
        UnknownSeverity,
        BelowSeverity,  ///< the component is not bad enough
        Send,
    };

    /// @param systemSeverity  of the event's cabinet
    /// @param componentStatus  the component's own number, which counts, not the severity that the system's maps to
    static StatusMail DecideStatusMail(AlerterSeverity systemSeverity, unsigned int componentStatus,
                                       const AlertSettings& settings);

    enum class UpdateMail {
        None,
        NewUpdates,
        JobFinished,
    };

    /// True for the error codes that the update manager sends.
    static bool IsUpdateManagerCode(std::uint32_t errorCode);
    static UpdateMail DecideUpdateMail(std::uint32_t errorCode, const AlertSettings& settings);
};
