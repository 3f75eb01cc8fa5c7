// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "testing/SilentSwitch.h"

/// An agent that reports a warning whenever it is asked for the system's status.
class CWarningSwitch final : public CSilentSwitch {
public:
    static constexpr unsigned int kWarning = 2;

    void SyncRequest(CIExtensionModule*, SipJson& message, unsigned int) override {
        message.SetDataUIntValue(kWarning, 0);
    }
};
