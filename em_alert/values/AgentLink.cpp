// SPDX-License-Identifier: Apache-2.0
#include "em_alert/values/AgentLink.h"

#include "sip/SipJson.h"

namespace {

constexpr unsigned int kTimeout = 5000;  // ms

bool HoldsSystemStatus(const SipJson& answer) {
    const unsigned int status = answer.GetCmdElemValue(answer.GetCmdIndex(), "ST", kNoStatus);
    return status == kDone || status == kAgentStatus12 || status == kAgentStatus21 || status == kEvent;
}

bool TakeText(const SipJson& answer, std::string& text) {
    return answer.GetCmdDataString(answer.GetCmdIndex(), text, SipJson::kNoLimit);
}

}  // namespace

unsigned int DataNumber(const SipJson& message) {
    unsigned int number{};
    message.GetCmdUIntData(message.GetCmdIndex(), number);
    return number;
}

/// @return whether the answer, which replaces the empty message, has data
bool CAgentLink::Ask(SipJson& message, unsigned int opCode, unsigned int opCodeExt, unsigned int objectId) {
    message.SetCmd(message.GetCmd(), opCode, opCodeExt, objectId, CExtensionModule::ServerCabinetNumber(),
                   kWithoutStatus);
    frame_.SyncRequest(message, kTimeout);
    return message.HasReplyData();
}

bool CAgentLink::RequestText(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId, std::string& text) {
    SipJson message;
    return Ask(message, opCode, opCodeExt, objectId) && TakeText(message, text);
}

bool CAgentLink::RequestNumber(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId,
                               unsigned int& number) {
    SipJson message;
    return Ask(message, opCode, opCodeExt, objectId) && message.GetCmdUIntData(message.GetCmdIndex(), number);
}

bool CAgentLink::RequestMessageTemplate(std::uint32_t errorCode, std::string& messageTemplate) {
    SipJson message;
    message.SetCmd(message.GetCmd(), kReadUpdateMessage, 0, 0, CExtensionModule::ServerCabinetNumber(), kWithoutStatus);
    message.SetDataUIntValue(errorCode, kNoStatus);
    frame_.SyncRequest(message, kTimeout);
    return TakeText(message, messageTemplate);
}

bool CAgentLink::RequestSetting(ConfigurationValue id, SipJson& answer) {
    return Ask(answer, kReadConfigurationValue, id, 0);
}

unsigned char CAgentLink::RequestSystemStatus(unsigned int cabinet) {
    SipJson message;
    message.SetCmd(message.GetCmd(), kReadSystemStatus, 0, 0, cabinet, kWithoutStatus);
    frame_.SyncRequest(message, kTimeout);
    return HoldsSystemStatus(message) ? ToStatusByte(DataNumber(message)) : 0;
}

std::string CAgentLink::RequestComponentText(OperationCode opCode, const SipJson& event) {
    SipJson message;
    message.SetCmd(message.GetCmd(), opCode, event.GetElem("OE"), event.GetElem("OI"),
                   event.GetCmdElemValue(event.GetCmdIndex(), "CA", CExtensionModule::ServerCabinetNumber()),
                   kWithoutStatus);
    frame_.SyncRequest(message, kTimeout);
    std::string text;
    TakeText(message, text);
    return text;
}

void CAgentLink::Announce(OperationCode opCode) {
    SipJson event;
    event.SetCmd(event.GetCmd(), opCode, 0, 0, CExtensionModule::ServerCabinetNumber(), kWithoutStatus);
    event.SetDataUIntValue(1, kDone);
    frame_.FireEvent(event);
}
