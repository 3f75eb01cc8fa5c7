// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "em_alert/ExtensionModule.h"
#include "sip/SipJson.h"

/// An agent that takes everything and answers nothing, for agents that differ in a call or two.
class CSilentSwitch : public CISwitch {
public:
    virtual ~CSilentSwitch() = default;

    void AsyncRequest(CIExtensionModule*, SipJson&, unsigned int) override {}
    void SyncRequest(CIExtensionModule*, SipJson&, unsigned int) override {}
    bool DeliverMessage(CIExtensionModule*, SipJson&) override { return true; }
    bool EnableEvents(CIExtensionModule*, bool) override { return true; }
    bool DisableEvents(CIExtensionModule*) override { return true; }
    bool ForwardEvent(CIExtensionModule*, SipJson&, unsigned int, unsigned int) override { return true; }
    unsigned int GetRunMode() override { return 0; }
};
