#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "em_alert/ExtensionModule.h"
#include "sip/SipJson.h"

/// A switch that has beep and mail on, and a system whose status is an error; it counts the replies. Any thread.
class CAnsweringSwitch final : public CISwitch {
public:
    std::function<void()> onRequest = [] {};  ///< before each answer, on the thread that asks
    std::function<void()> onReply = [] {};    ///< before each reply is counted, on the worker
    std::function<void()> onEvent = [] {};    ///< inside the delivery of each event
    std::atomic<unsigned int> systemStatus{3};

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
            message.SetDataUIntValue(systemStatus, 0);
        } else if (code == 0xE001 && (value == 0x0400 || value == 0x0410)) {
            message.SetDataUIntValue(1, 0);
        } else if (code == 0xE001 && value == 0x0417) {
            message.SetReplyDataString("$(ComponentName) on $_IDN", 0);
        }
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
    void AsyncRequest(CIExtensionModule*, SipJson&, unsigned int) override {}
    bool EnableEvents(CIExtensionModule*, bool) override { return true; }
    bool DisableEvents(CIExtensionModule*) override { return true; }
    bool ForwardEvent(CIExtensionModule*, SipJson&, unsigned int, unsigned int) override { return true; }
    unsigned int GetRunMode() override { return 0; }

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
