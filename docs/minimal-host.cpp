// SPDX-License-Identifier: Apache-2.0

// The smallest agent that the module works with: it starts the module, delivers one status event, asks whether an alert
// is pending and whether alerting is supported, and stops. docs/embedding.md explains the order of the calls.
//
//   minimal-host PATH/libem_alert.so

#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <mutex>
#include <string>

#include "em_alert/EmAlert.h"
#include "em_alert/ExtensionModule.h"
#include "platform/DebugSink.h"
#include "sip/SipJson.h"

namespace {

constexpr unsigned int kModuleId = 0x00050001;

// Of docs/messages.md.
constexpr unsigned int kDone = 0;
constexpr unsigned int kNotHandled = 1;
constexpr unsigned int kAnswerFollows = 22;
constexpr unsigned int kEvent = 255;
constexpr unsigned int kReadSetting = 0xE001;
constexpr unsigned int kStatusMails = 0x0410;
constexpr unsigned int kSystemStatus = 0x230F;
constexpr unsigned int kComponentName = 0x2321;

void Show(const char* what, const SipJson& message) {
    std::string json;
    message.GetJson(json);
    std::printf("%s %s\n", what, json.c_str());
}

/// Called on any thread of the module, several at a time. Nothing may be thrown out of it.
class CHostSwitch final : public CISwitch {
public:
    void AsyncRequest(CIExtensionModule* /*module*/, SipJson& /*message*/, unsigned int /*reserved*/) override {}

    /// What this host knows: mails are wanted, the server has a warning, and it comes from a fan.
    void SyncRequest(CIExtensionModule* /*module*/, SipJson& message, unsigned int /*timeout*/) override {
        const unsigned int operation = message.GetElem("OC");
        if (operation == kReadSetting && message.GetElem("OE") == kStatusMails) {
            message.SetDataUIntValue(1, kDone);
        } else if (operation == kSystemStatus) {
            message.SetDataUIntValue(2, kDone);
        } else if (operation == kComponentName) {
            message.SetReplyDataString("FAN3", kDone);
            Show("answer", message);
        } else {
            message.SetStatus(kNotHandled);
        }
    }

    bool DeliverMessage(CIExtensionModule* /*module*/, SipJson& message) override {
        const bool isEvent = message.GetElem("ST") == kEvent;
        Show(isEvent ? "event" : "reply", message);
        if (!isEvent) {
            const std::lock_guard lock(mutex_);
            replied_ = true;
            changed_.notify_all();
        }
        return true;
    }

    bool EnableEvents(CIExtensionModule* /*module*/, bool /*enable*/) override { return true; }
    bool DisableEvents(CIExtensionModule* /*module*/) override { return true; }
    bool ForwardEvent(CIExtensionModule* /*module*/, SipJson& /*message*/, unsigned int /*high*/,
                      unsigned int /*low*/) override {
        return false;
    }
    unsigned int GetRunMode() override { return 0; }

    void WaitForReply() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return replied_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool replied_ = false;
};

void SetCommand(SipJson& message, unsigned int opCode) {
    message.SetCmd(message.GetCmd(), opCode, 0, 0, 0, 0xFFFFFFFF);
}

void Work(CIExtensionModule& module, CHostSwitch& host) {
    SipJson event;
    SetCommand(event, 0x2322);
    event.SetDataUIntValue(2, kEvent);
    module.ApplicationReply(event);

    SipJson pending;
    SetCommand(pending, 0x2240);
    module.ModuleRequest(pending);
    Show("returned", pending);

    SipJson supported;
    SetCommand(supported, 0x2243);
    module.ModuleRequest(supported);
    if (supported.GetElem("ST") == kAnswerFollows) {
        host.WaitForReply();
    }
}

int Run(decltype(&EM_Create) create, decltype(&EM_Delete) remove) {
    CIExtensionModule* module = nullptr;
    if (!create(&module, nullptr)) {
        return 1;
    }
    CHostSwitch host;  // lives until the module is deleted
    module->SetServerCabinetNumber(0);
    module->Start(&host, kModuleId);
    module->Notify(SCN_SWITCH_REQUEST_ENABLED, nullptr, nullptr);
    module->OnSwitchStarted(nullptr);
    Work(*module, host);
    module->Notify(SCN_SWITCH_SHUTDOWN, nullptr, nullptr);
    module->Stop();
    return remove() ? 0 : 1;
}

}  // namespace

class CTraceToStandardError final : public CIDebugSink {
public:
    bool IsActive() const override { return true; }
    __attribute__((format(printf, 2, 0))) void Print(const char* format, va_list arguments,
                                                     const char* /*moduleName*/) override {
        std::vfprintf(stderr, format, arguments);
    }
};

/// Where the module's traces go. It must be visible to the module: default visibility, and the program linked with its
/// symbols exported (ENABLE_EXPORTS in CMake).
extern "C" __attribute__((visibility("default"))) CTraceToStandardError Debug;
CTraceToStandardError Debug;

int main(int argc, char** argv) {
    void* const library = argc == 2 ? ::dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (library == nullptr) {
        std::fputs("usage: minimal-host LIBRARY, a library that can be loaded\n", stderr);
        return 2;
    }
    const auto create = reinterpret_cast<decltype(&EM_Create)>(::dlsym(library, "EM_Create"));
    const auto remove = reinterpret_cast<decltype(&EM_Delete)>(::dlsym(library, "EM_Delete"));
    const int result = create != nullptr && remove != nullptr ? Run(create, remove) : 2;
    return ::dlclose(library) == 0 ? result : 1;
}
