// SPDX-License-Identifier: Apache-2.0
#include "em_alert/frame/ExtensionModuleBase.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

/// Makes a request ready to be sent.
/// @return false when there is no switch to send it through; the request then says so itself
bool CExtensionModule::PrepareRequest(SipJson& message) {
    if (switch_ == nullptr) {
        message.SetStatus(kFailed);
        return false;
    }
    if (!message.HasCmdElem(message.GetCmdIndex(), "CA")) {
        message.SetCmdElemValue(message.GetCmd(), "CA", ServerCabinetNumber(), false);
    }
    return true;
}

void CExtensionModule::SyncRequest(SipJson& message, unsigned int timeout) {
    if (PrepareRequest(message)) {
        switch_->SyncRequest(this, message, timeout);
    }
}

void CExtensionModule::AsyncRequest(SipJson& message) {
    if (PrepareRequest(message)) {
        switch_->AsyncRequest(this, message, 0);
    }
}

void CExtensionModule::SyncCabinetBroadcast(SipJson& message, unsigned int timeout) {
    message.SetCmdElemValue(message.GetCmd(), "CA", kEveryone, false);
    SyncRequest(message, timeout);
}

void CExtensionModule::SyncModuleBroadcast(SipJson& message, unsigned int timeout) {
    message.SetCmdElemValue(message.GetCmd(), "MI", kEveryone, false);
    SyncRequest(message, timeout);
}

void CExtensionModule::FireEvent(SipJson& message) {
    const unsigned int status = message.GetCmdElemValue(message.GetCmdIndex(), "ST", kNoStatus);
    message.SetStatus(kEvent);
    if (switch_ != nullptr) {
        switch_->DeliverMessage(this, message);
    }
    message.SetStatus(status);
}

bool CExtensionModule::ForwardEvent(SipJson& message) {
    if (switch_ == nullptr) {
        return false;
    }
    const unsigned int moduleId = message.GetElem("MI");
    return switch_->ForwardEvent(this, message, moduleId >> 16, moduleId & 0xFFFF);
}

bool CExtensionModule::IsLocalServerRequest(const SipJson& message) {
    const int index = message.GetCmdIndex();
    const unsigned int own = ServerCabinetNumber();
    const unsigned int foreign = ~own;  // what is no number names no server
    return !message.HasCmdElem(index, "CA") || message.GetCmdElemValue(index, "CA", foreign) == own;
}

bool CExtensionModule::IsLocalServerReply(const SipJson& message) {
    return IsLocalServerRequest(message);
}

bool CExtensionModule::IsLocalServerRequestOrCabinetBroadcast(const SipJson& message) {
    return IsLocalServerRequest(message) || message.GetElem("CA") == kEveryone;
}
