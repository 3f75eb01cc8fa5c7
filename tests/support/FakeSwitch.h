// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "em_alert/ExtensionModule.h"
#include "sip/SipJson.h"

/// A switch that notes each call as one line of text, such as `sync 5000 {"OC":1,"CA":7}` with the current command. One
/// thread.
class CFakeSwitch : public CISwitch {
public:
    virtual ~CFakeSwitch() = default;

    std::vector<std::string> calls;
    std::function<void(SipJson&)> answer = [](SipJson&) {};  ///< to a synchronous request; none
    unsigned int runMode = 0;
    unsigned int runModeQueries = 0;

    void AsyncRequest(CIExtensionModule*, SipJson& message, unsigned int reserved) override {
        Note("async " + std::to_string(reserved), &message);
    }
    void SyncRequest(CIExtensionModule*, SipJson& message, unsigned int timeout) override {
        Note("sync " + std::to_string(timeout), &message);
        answer(message);
    }
    bool DeliverMessage(CIExtensionModule*, SipJson& message) override { return Note("deliver", &message); }
    bool EnableEvents(CIExtensionModule*, bool enable) override { return Note(enable ? "enable" : "refuse", nullptr); }
    bool DisableEvents(CIExtensionModule*) override { return Note("disable", nullptr); }
    bool ForwardEvent(CIExtensionModule*, SipJson& message, unsigned int high, unsigned int low) override {
        return Note("forward " + std::to_string(high) + " " + std::to_string(low), &message);
    }
    unsigned int GetRunMode() override {
        ++runModeQueries;
        return runMode;
    }

private:
    bool Note(std::string line, SipJson* message) {
        if (message != nullptr) {
            std::string json;
            message->GetJson(json);
            line += " " + json.substr(sizeof R"({"SIP":{"V":1,"CMD":)" - 1);
            line.resize(line.size() - 2);
        }
        calls.push_back(line);
        return true;
    }
};

/// A message with one command, given as JSON.
inline SipJson MessageOf(const std::string& command) {
    SipJson message;
    const std::string text = R"({"SIP":{"V":1,"CMD":[)" + command + "]}}";
    EXPECT_TRUE(message.Parse(text.data(), text.size())) << command;
    return message;
}
