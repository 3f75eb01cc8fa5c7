// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

#include "em_alert/ExtensionModule.h"

/// What every extension module of the agent shares: the link to the switch, requests and events through it, the tracing
/// of messages, and a default for each operation.
///
/// Until Start has linked the switch, each operation that needs it answers false, 0 or a default text. Requests,
/// replies and events may be sent on any thread after Start.
class CExtensionModule : public CIExtensionModule {
public:
    CExtensionModule() = default;
    ~CExtensionModule() override = default;
    CExtensionModule(const CExtensionModule&) = delete;
    CExtensionModule& operator=(const CExtensionModule&) = delete;

    bool GetProperties(_ExtensionModuleProperties& properties) override;
    bool DetectHardware() override;
    bool Start(CISwitch* agent, unsigned int moduleId) override;
    bool Stop() override;
    void OnSwitchStarted(void* parameter) override;
    void ApplicationReply(SipJson& message) override;

    /// Answers each request with "ST" 1, not handled.
    bool ModuleRequest(SipJson& message) override;
    bool CommandToDevice(SipJson& message) override;

    /// The number is module-wide and survives the module object.
    bool SetServerCabinetNumber(unsigned int number) override;
    bool GetServerSeList(unsigned int** list, unsigned char& count) override;
    bool SetServerSeList(unsigned int* list, unsigned char count) override;
    int Notify(unsigned int code, void* parameter1, void* parameter2) override;
    const char* GetName() const override;
    void ModuleAttached(_CMD_MODULEID& module) override;
    void ModuleDetached(_CMD_MODULEID& module) override;
    void ClientAttached(unsigned int client) override;
    void ClientDetached(unsigned int client) override;
    bool GetServerCabinetNumber(unsigned int& number) override;
    bool CommandToDevice(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId, unsigned int cabinetId,
                         const unsigned char* data, unsigned int dataSize) override;
    bool CommandToSe(SipJson& message, unsigned int se, unsigned int cabinetId) override;
    bool CommandToSe(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId, unsigned int cabinetId,
                     const unsigned char* data, unsigned int dataSize, unsigned int se,
                     unsigned int seCabinetId) override;
    int OnModuleNotification(unsigned int code, void* parameter1, void* parameter2) override;

    /// Hand a message back to the switch. The two are identical.
    /// @return the switch's result, false without a switch
    bool ReplySip(SipJson& message);
    bool ModuleReply(SipJson& message);

    bool EnableEvents(bool enable);
    bool DisableEvents();

    /// 5 agentless service, 8 update management, 10 both; 0 without a switch.
    unsigned int GetRunMode() const;
    bool IsAgentlessMode() const;
    bool IsUMEMode() const;
    const char* GetSysLogName() const;

    // All of the following work on the message's current command.

    /// Sends a request and waits for the answer, which replaces it in `message`. A command without "CA" gets this
    /// server's. Without a switch the command gets "ST" 6 and nothing is sent.
    /// @param timeout  milliseconds; what the switch does with it is the agent's
    void SyncRequest(SipJson& message, unsigned int timeout);
    void AsyncRequest(SipJson& message);
    void SyncCabinetBroadcast(SipJson& message, unsigned int timeout);
    void SyncModuleBroadcast(SipJson& message, unsigned int timeout);

    /// Delivers the command as an event, with "ST" 255 while it is under way; afterwards "ST" is what it was, or 22
    /// when there was none.
    void FireEvent(SipJson& message);

    /// Forwards an event to the module that "MI" names.
    bool ForwardEvent(SipJson& message);

    /// True when the command is for this server: "CA" is its number, or is absent, or there is no command at all.
    static bool IsLocalServerRequest(const SipJson& message);
    static bool IsLocalServerReply(const SipJson& message);
    static bool IsLocalServerRequestOrCabinetBroadcast(const SipJson& message);

    // Each writes one trace line with the command's header and a summary of its data; switched off, none reads the
    // message.

    void TraceSip(int level, const char* name, const SipJson& message) const;
    void TraceRequestIn(const SipJson& message, int level) const;
    void TraceRequestOut(const SipJson& message, int level) const;
    void TraceReply(const SipJson& message, int level) const;

    /// True from the switch's shutdown notification on.
    bool IsSwitchShutdown() const { return switchShutdown_.load(std::memory_order_relaxed); }

    static unsigned int ServerCabinetNumber();

    /// The id under which the agent knows the module, as Start was told; 0 before.
    unsigned int ModuleId() const { return static_cast<unsigned int>(moduleIdHigh_) << 16 | moduleIdLow_; }

private:
    bool PrepareRequest(SipJson& message);
    void TraceSipAs(int level, const char* suffix, const SipJson& message) const;

    CISwitch* switch_ = nullptr;
    std::uint16_t moduleIdLow_{};
    std::uint16_t moduleIdHigh_{};
    std::atomic<bool> switchShutdown_{false};
};
