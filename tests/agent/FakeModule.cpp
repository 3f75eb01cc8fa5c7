// A module that shows what the real one does not: asynchronous requests, refused steps, a library that stays loaded.

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>

#include "em_alert/EmAlert.h"
#include "em_alert/ExtensionModule.h"
#include "platform/DebugSink.h"
#include "sip/SipJson.h"

namespace {

enum : unsigned int {
    kRefuseStop = 0x98,  // notifications
    kStayLoaded = 0x99,
    kPendingAlert = 0x2240,  // requests: always pending
    kAskAsync = 0x9001,      // ask without waiting
    kAskSync = 0x9002,       // ask for 0x1234 with the same OE, OI and CA
    kForward = 0x9003,
};

__attribute__((format(printf, 1, 2))) void Print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    static_cast<CIDebugSink*>(::dlsym(RTLD_DEFAULT, "Debug"))->Print(format, arguments, "FAKE");
    va_end(arguments);
}

SipJson Message(unsigned oc, unsigned oe, unsigned oi, unsigned ca, unsigned st) {
    SipJson message;
    message.SetCmd(message.GetCmd(), oc, oe, oi, ca, st);
    return message;
}

class CFakeModule final : public CIExtensionModule {
public:
    bool GetProperties(_ExtensionModuleProperties& properties) override {
        std::memcpy(properties.moduleName, "FAKE", 5);
        std::memset(properties.moduleDescription, 'x', sizeof(properties.moduleDescription));
        return properties.size == 246;
    }
    bool DetectHardware() override { return true; }
    bool Start(CISwitch* agent, unsigned int /*moduleId*/) override {
        switch_ = agent;
        const char* level = std::getenv("LUME_LOG_DEBUG_LEVEL");  // NOLINT(concurrency-mt-unsafe): one thread so far
        Print("\nFAKE: level %s, mode %u", level != nullptr ? level : "none", agent->GetRunMode());
        return true;
    }
    bool Stop() override { return !refuseStop_; }
    void OnSwitchStarted(void* /*parameter*/) override {
        SipJson value = Message(0xE001, 0x400, 0, cabinet_, UINT32_MAX);
        switch_->SyncRequest(this, value, 5000);
        unsigned enabled = 0;
        switch_->EnableEvents(this, value.GetCmdUIntData(0, enabled) && enabled == 1);
    }
    void ApplicationReply(SipJson& message) override {
        if (message.GetCmdElemValue(0, "OC", 0) == 0x2322) {
            SipJson pending = Message(0x2240, 0, 0, cabinet_, 255);
            pending.SetDataUIntValue(1, 255);
            switch_->DeliverMessage(this, pending);
        } else {
            switch_->DeliverMessage(this, message);
        }
    }
    bool ModuleRequest(SipJson& message) override {
        const auto member = [&](const char* key) { return message.GetCmdElemValue(0, key, 0); };
        SipJson question = Message(0x1234, member("OE"), member("OI"), member("CA"), UINT32_MAX);
        switch (member("OC")) {
            case kAskAsync:
                switch_->AsyncRequest(this, question, 0);
                return message.SetStatus(22);
            case kAskSync:
                switch_->SyncRequest(this, question, 5000);
                return message.SetStatus(0);
            case kForward:
                return switch_->ForwardEvent(this, question, 3, 4);
            case kPendingAlert:
                message.SetDataByte(1, 0);
                return true;
            default:
                message.SetStatus(20);
                return false;
        }
    }
    bool CommandToDevice(SipJson& /*message*/) override { return false; }
    bool SetServerCabinetNumber(unsigned int number) override {
        cabinet_ = number;
        return true;
    }
    bool GetServerSeList(unsigned int** /*list*/, unsigned char& /*count*/) override { return false; }
    bool SetServerSeList(unsigned int* /*list*/, unsigned char /*count*/) override { return false; }
    int Notify(unsigned int code, void* /*parameter1*/, void* /*parameter2*/) override {
        Dl_info self{};
        refuseStop_ = refuseStop_ || code == kRefuseStop;
        if (code == kStayLoaded && ::dladdr(reinterpret_cast<void*>(&EM_Delete), &self) != 0) {
            ::dlopen(self.dli_fname, RTLD_NOW | RTLD_NODELETE);
        }
        return 0;
    }
    const char* GetName() const override { return "FAKE"; }
    void ModuleAttached(_CMD_MODULEID& /*module*/) override {}
    void ModuleDetached(_CMD_MODULEID& /*module*/) override {}
    void ClientAttached(unsigned int /*client*/) override {}
    void ClientDetached(unsigned int /*client*/) override {}
    bool GetServerCabinetNumber(unsigned int& /*number*/) override { return false; }
    bool CommandToDevice(unsigned, unsigned, unsigned, unsigned, const unsigned char*, unsigned) override {
        return false;
    }
    bool CommandToSe(SipJson& /*message*/, unsigned int /*se*/, unsigned int /*cabinetId*/) override { return false; }
    bool CommandToSe(unsigned, unsigned, unsigned, unsigned, const unsigned char*, unsigned, unsigned,
                     unsigned) override {
        return false;
    }
    int OnModuleNotification(unsigned int /*code*/, void* /*p1*/, void* /*p2*/) override { return 0; }

private:
    CISwitch* switch_ = nullptr;
    unsigned int cabinet_ = 0;
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
