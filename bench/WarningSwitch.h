#pragma once

#include "em_alert/ExtensionModule.h"
#include "sip/SipJson.h"

/// An agent that reports a warning whenever it is asked for the system's status.
class CWarningSwitch final : public CISwitch {
public:
    static constexpr unsigned int kWarning = 2;

    void AsyncRequest(CIExtensionModule*, SipJson&, unsigned int) override {}
    void SyncRequest(CIExtensionModule*, SipJson& message, unsigned int) override {
        message.SetDataUIntValue(kWarning, 0);
    }
    bool DeliverMessage(CIExtensionModule*, SipJson&) override { return true; }
    bool EnableEvents(CIExtensionModule*, bool) override { return true; }
    bool DisableEvents(CIExtensionModule*) override { return true; }
    bool ForwardEvent(CIExtensionModule*, SipJson&, unsigned int, unsigned int) override { return true; }
    unsigned int GetRunMode() override { return 0; }
};
