// SPDX-License-Identifier: Apache-2.0

// A module that shows what the real one does not: asynchronous requests, refused steps, a library that stays loaded.

#include <cstring>
#include <dlfcn.h>
#include <memory>

#include "em_alert/EmAlert.h"
#include "em_alert/frame/ExtensionModuleBase.h"
#include "em_alert/frame/ModuleInstance.h"
#include "sip/SipJson.h"

ModuleInstance moduleInstance;

namespace {

enum : unsigned int {
    kRefuseStop = 0x98,  // notifications
    kStayLoaded = 0x99,
    kPendingAlert = 0x2240,  // requests: always pending
    kAskAsync = 0x9001,      // ask without waiting, in a second command
    kAskSync = 0x9002,       // ask for 0x1234, all else the same
    kForward = 0x9003,
};

SipJson Message(unsigned oc, unsigned oe, unsigned oi, unsigned ca, int index = 0) {
    SipJson message;
    message.SetCmdIndex(index);
    message.SetCmd(message.GetCmd(), oc, oe, oi, ca, UINT32_MAX);
    return message;
}

class CFakeModule final : public CExtensionModule {
public:
    bool GetProperties(_ExtensionModuleProperties& properties) override {
        std::memcpy(properties.moduleName, "FAKE", 5);
        std::memset(properties.moduleDescription, 'x', sizeof(properties.moduleDescription));
        return properties.size == 246;
    }
    bool Stop() override { return !refuseStop_; }
    void OnSwitchStarted(void* /*parameter*/) override {
        SipJson value = Message(0xE001, 0x400, 0, ServerCabinetNumber());
        SyncRequest(value, 5000);
        if (unsigned enabled = 0; value.GetCmdUIntData(0, enabled)) {
            EnableEvents(enabled == 1);
        }
    }
    void ApplicationReply(SipJson& message) override {
        if (message.GetCmdElemValue(0, "OC", 0) == 0x2322) {
            SipJson pending = Message(kPendingAlert, 0, 0, ServerCabinetNumber());
            pending.SetDataUIntValue(1, 0);
            FireEvent(pending);
        } else {
            ReplySip(message);
        }
    }
    bool ModuleRequest(SipJson& message) override {
        const auto member = [&](const char* key) { return message.GetCmdElemValue(0, key, 0); };
        SipJson question = Message(0x1234, member("OE"), member("OI"), member("CA"), member("OC") == kAskAsync ? 1 : 0);
        switch (member("OC")) {
            case kAskAsync:
                AsyncRequest(question);
                return message.SetStatus(22);
            case kAskSync:
                question = message;
                question.SetCmdElemValue(question.GetCmd(), "OC", 0x1234, false);
                SyncRequest(question, 5000);
                return message.SetStatus(0);
            case kForward:
                question.SetCmdElemValue(question.GetCmd(), "MI", 0x30004, false);
                return ForwardEvent(question);
            case kPendingAlert:
                message.SetDataByte(1, 0);
                return true;
            default:
                message.SetStatus(20);
                return false;
        }
    }
    int OnModuleNotification(unsigned int code, void* /*parameter1*/, void* /*parameter2*/) override {
        Dl_info self{};
        refuseStop_ = refuseStop_ || code == kRefuseStop;
        if (code == kStayLoaded && ::dladdr(reinterpret_cast<void*>(&EM_Delete), &self) != 0) {
            ::dlopen(self.dli_fname, RTLD_NOW | RTLD_NODELETE);
        }
        return 0;
    }
    const char* GetName() const override { return EM_GetModuleName(); }

private:
    bool refuseStop_ = false;
};

std::unique_ptr<CFakeModule> instance;

}  // namespace

bool EM_Create(CIExtensionModule** out, void* /*agentParameter*/) {
    instance = std::make_unique<CFakeModule>();
    *out = instance.get();
    return true;
}

bool EM_Delete() {
    instance.reset();
    return true;
}

const char* EM_GetModuleName() {
    return "FAKE";
}

int EM_SetupAction(unsigned int /*action*/) {
    return 1;
}
