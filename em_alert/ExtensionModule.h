// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

class CIExtensionModule;
class SipJson;
struct _ExtensionModuleProperties;

/// The two halves of a module id.
struct _CMD_MODULEID {
    std::uint16_t low{};
    std::uint16_t high{};
};

/// The agent's core as a module sees it. The agent supplies the object and keeps it until the module is deleted. The
/// operations may be called on any thread of the module, several at a time; `module` is always the caller. Their order
/// is part of the contract.
class CISwitch {
public:
    /// Sends a request without waiting; an answer comes through CIExtensionModule::ApplicationReply.
    /// @param reserved  0
    virtual void AsyncRequest(CIExtensionModule* module, SipJson& message, unsigned int reserved) = 0;

    /// Sends a request and waits for its answer, which replaces the request in `message`.
    /// @param timeout  milliseconds
    virtual void SyncRequest(CIExtensionModule* module, SipJson& message, unsigned int timeout) = 0;

    /// Delivers a reply to a request, or an event ("ST" 255), of the module.
    virtual bool DeliverMessage(CIExtensionModule* module, SipJson& message) = 0;

    /// Lets events reach the module, or not.
    virtual bool EnableEvents(CIExtensionModule* module, bool enable) = 0;

    virtual bool DisableEvents(CIExtensionModule* module) = 0;

    /// Forwards an event to one module.
    /// @param high, low  the halves of the target's module id
    virtual bool ForwardEvent(CIExtensionModule* module, SipJson& message, unsigned int high, unsigned int low) = 0;

    /// @return 5 agentless service, 8 update management, 10 both; other values are ordinary agent modes
    virtual unsigned int GetRunMode() = 0;

protected:
    ~CISwitch() = default;
};

/// Codes of CIExtensionModule::Notify.
enum SwitchNotification : unsigned int {
    SCN_SWITCH_SHUTDOWN = 0x20000,
    SCN_SWITCH_REQUEST_ENABLED = 0x20001,
    SCN_SYSTEM_SHUTDOWN = 0x30000,
    SCN_POWERSTATE_SUSPEND = 0x40000,
    SCN_POWERSTATE_STANDBY = 0x40001,
    SCN_POWERSTATE_RESUME = 0x40002,
    SCN_POWERSTATE_AC_OFFLINE = 0x40003,
    SCN_POWERSTATE_AC_ONLINE = 0x40004,
};

/// An extension module as the agent drives it. The order of the operations is part of the contract; none of them lets
/// an exception out. The module object is created and destroyed by the exports (EmAlert.h).
class CIExtensionModule {
public:
    virtual ~CIExtensionModule() = default;

    /// Fills the record that the agent owns.
    /// @return false, touching nothing, when the record's size field is too small
    virtual bool GetProperties(_ExtensionModuleProperties& properties) = 0;
    virtual bool DetectHardware() = 0;

    /// Links the module to the agent.
    /// @param agent  the agent's core; outlives the module
    /// @param moduleId  low and high half of the id under which the agent knows the module
    virtual bool Start(CISwitch* agent, unsigned int moduleId) = 0;

    /// Ends all work; returns when the module's threads have ended.
    virtual bool Stop() = 0;

    /// Called once all layers of the agent run: the module loads its configuration and enables its events.
    virtual void OnSwitchStarted(void* parameter) = 0;

    /// An event, a notice, or the answer to an asynchronous request.
    virtual void ApplicationReply(SipJson& message) = 0;

    /// A request to the module, answered in place; "ST" 22 means that the answer follows through the switch.
    /// @return false when the request was not for this server
    virtual bool ModuleRequest(SipJson& message) = 0;
    virtual bool CommandToDevice(SipJson& message) = 0;
    virtual bool SetServerCabinetNumber(unsigned int number) = 0;
    virtual bool GetServerSeList(unsigned int** list, unsigned char& count) = 0;
    virtual bool SetServerSeList(unsigned int* list, unsigned char count) = 0;

    /// @param code  a SwitchNotification or a code of the agent's own
    virtual int Notify(unsigned int code, void* parameter1, void* parameter2) = 0;
    virtual const char* GetName() const = 0;
    virtual void ModuleAttached(_CMD_MODULEID& module) = 0;
    virtual void ModuleDetached(_CMD_MODULEID& module) = 0;
    virtual void ClientAttached(unsigned int client) = 0;
    virtual void ClientDetached(unsigned int client) = 0;
    virtual bool GetServerCabinetNumber(unsigned int& number) = 0;
    virtual bool CommandToDevice(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId,
                                 unsigned int cabinetId, const unsigned char* data, unsigned int dataSize) = 0;
    virtual bool CommandToSe(SipJson& message, unsigned int se, unsigned int cabinetId) = 0;
    virtual bool CommandToSe(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId, unsigned int cabinetId,
                             const unsigned char* data, unsigned int dataSize, unsigned int se,
                             unsigned int seCabinetId) = 0;
    virtual int OnModuleNotification(unsigned int code, void* parameter1, void* parameter2) = 0;
};
