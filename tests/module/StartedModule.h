// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "em_alert/EmAlert.h"
#include "support/FakeSwitch.h"

/// The library as an agent loads it.
class CLoadedLibrary {
public:
    CLoadedLibrary() : handle_(::dlopen(EM_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(handle_, nullptr) << ::dlerror();
        Find("EM_Create", create);
        Find("EM_Delete", remove);
        Find("EM_GetModuleName", name);
        Find("EM_SetupAction", setupAction);
    }
    ~CLoadedLibrary() { EXPECT_EQ(::dlclose(handle_), 0); }
    CLoadedLibrary(const CLoadedLibrary&) = delete;
    CLoadedLibrary& operator=(const CLoadedLibrary&) = delete;

    CIExtensionModule* CreateModule() const {
        CIExtensionModule* module = nullptr;
        EXPECT_TRUE(create(&module, nullptr));
        return module;
    }
    /// Creates the module and takes it as far as the agent's work, with the cabinet number 0.
    CIExtensionModule* StartModule(CISwitch& agent) const {
        CIExtensionModule* module = CreateModule();
        module->SetServerCabinetNumber(0);
        EXPECT_TRUE(module->Start(&agent, 1));
        module->OnSwitchStarted(nullptr);
        return module;
    }

    decltype(&EM_Create) create = nullptr;
    decltype(&EM_Delete) remove = nullptr;
    decltype(&EM_GetModuleName) name = nullptr;
    decltype(&EM_SetupAction) setupAction = nullptr;

private:
    template <typename Function>
    void Find(const char* symbol, Function& function) {
        function = reinterpret_cast<Function>(::dlsym(handle_, symbol));
        ASSERT_NE(function, nullptr) << symbol;
    }

    void* handle_;
};

/// A switch that has beep and mail on, and a system whose status is an error; it counts the replies. Any thread.
class CAnsweringSwitch final : public CFakeSwitch {
public:
    std::function<void()> onRequest = [] {};  ///< before each answer, on the thread that asks
    std::function<void()> onReply = [] {};    ///< before each reply is counted, on the worker
    std::function<void()> onEvent = [] {};    ///< inside the delivery of each event
    std::function<void()> onEnable = [] {};   ///< when events are let through
    std::atomic<unsigned int> systemStatus{3};
    std::atomic<bool> hasAnswerStatus{true};  ///< of the answer that tells the system's

    /// Waits until `count` replies have come.
    bool AwaitReplies(unsigned int count) {
        std::unique_lock lock(lock_);
        return changed_.wait_for(lock, std::chrono::seconds(60), [&] { return replies_ >= count; });
    }
    unsigned int Replies() { return Locked(replies_); }
    unsigned int LastStatus() { return Locked(lastStatus_); }
    unsigned int LastData() { return Locked(lastData_); }

    void SyncRequest(CIExtensionModule*, SipJson& message, unsigned int) override {
        onRequest();
        const unsigned int code = message.GetCmdElemValue(0, "OC", 0);
        const unsigned int value = message.GetCmdElemValue(0, "OE", 0);
        if (code == 0x230F) {
            hasAnswerStatus ? message.SetDataUIntValue(systemStatus, 0)
                            : static_cast<void>(message.SetCmdUIntData(message.GetCmd(), systemStatus));
        } else if (code == 0xE001 && (value == 0x0400 || value == 0x0410)) {
            message.SetDataUIntValue(1, 0);
        } else if (code == 0xE001 && value == 0x0417) {
            message.SetReplyDataString("$(ComponentName) on $_IDN", 0);
        }
    }
    bool EnableEvents(CIExtensionModule*, bool) override {  // though memory may have run out
        onEnable();
        return true;
    }
    bool DeliverMessage(CIExtensionModule*, SipJson& message) override {
        const unsigned int status = message.GetCmdElemValue(0, "ST", 0);
        if (status == 255) {
            onEvent();
            return true;
        }
        onReply();
        const std::lock_guard lock(lock_);
        ++replies_;
        lastStatus_ = status;
        lastData_ = 0;
        message.GetCmdUIntData(0, lastData_);
        changed_.notify_all();
        return true;
    }

private:
    unsigned int Locked(const unsigned int& value) {
        const std::lock_guard lock(lock_);
        return value;
    }

    std::mutex lock_;
    std::condition_variable changed_;
    unsigned int replies_ = 0;
    unsigned int lastStatus_ = 0;
    unsigned int lastData_ = 0;
};

inline constexpr char kAlert[] = R"("OC":"0x2322","OE":3,"OI":1,"DA":3)";
inline constexpr char kPendingAlert[] = R"("OC":"0x2240")";
inline constexpr char kAcknowledge[] = R"("OC":"0x2241")";
inline constexpr char kBeepOn[] = R"("OC":"0xE002","OE":"0x0400","DA":1)";
inline constexpr char kBeepOff[] = R"("OC":"0xE002","OE":"0x0400","DA":0)";

inline constexpr char kFile[] = "/etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml";

/// A notification file with one server.
inline void WriteSettings(const std::string& host, int port) {
    std::filesystem::create_directories(std::filesystem::path(kFile).parent_path());
    std::ofstream(kFile)
        << "<Notifications><email><Format><Sender><Address>ops@x</Address></Sender><Recipients><Recipient>"
           "<Address>anna@x</Address></Recipient></Recipients></Format><SMTP><Server><Host>"
        << host << "</Host><Port>" << port << "</Port></Server></SMTP></email></Notifications>";
}

/// The library with a module at work, everything traced, on a private machine.
class StartedModule : public ::testing::Test {
protected:
    StartedModule() {
        WriteSettings("127.0.0.1", 9);
        module_ = library_.StartModule(agent_);
        silent_ = Threads();
    }
    ~StartedModule() override {
        EXPECT_TRUE(module_->Stop());
        EXPECT_TRUE(library_.remove());
        std::filesystem::remove_all("/etc/kestrel");
    }
    StartedModule(const StartedModule&) = delete;
    StartedModule& operator=(const StartedModule&) = delete;

    /// @return the answer's status, and its data as a number
    std::pair<unsigned int, unsigned int> Request(const std::string& members) {
        SipJson request = MessageOf("{" + members + "}");
        module_->ModuleRequest(request);
        unsigned int data = 0;
        request.GetCmdUIntData(0, data);
        return {request.GetCmdElemValue(0, "ST", 999), data};
    }
    /// Events and notices.
    void Event(const std::string& members = kAlert) {
        SipJson event = MessageOf("{" + members + "}");
        module_->ApplicationReply(event);
    }

    static std::ptrdiff_t Threads() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    }
    /// Waits for it: a sequence plays as long as the beeper's thread lives, which is seen for a moment after its end.
    bool Becomes(bool silent) const {
        for (int i = 0; i < 1000 && (Threads() == silent_) != silent; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return (Threads() == silent_) == silent;
    }

    const std::pair<unsigned int, unsigned int> kPending{0, 1};
    const int traced_ = ::setenv("LUME_LOG_DEBUG_LEVEL", "5", 1);
    const CLoadedLibrary library_;
    CAnsweringSwitch agent_;
    CIExtensionModule* module_ = nullptr;
    std::ptrdiff_t silent_ = 0;  ///< threads of a module that does not beep
};
