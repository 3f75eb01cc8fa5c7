// SPDX-License-Identifier: Apache-2.0
#include "service/core/Delivery.h"

#include "agent/core/Json.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

namespace {

// The record of docs/messages.md, "the update manager has something to tell": class 0x29, kind 0 (new updates), and
// their number as its one argument.
std::string UpdateRecord(std::uint32_t updates) {
    constexpr std::size_t kHead = 26;
    constexpr unsigned char kUpdateClass = 0x29;
    std::string argument = std::to_string(updates);
    std::string record(kHead, '\0');
    record[0] = static_cast<char>(kHead + argument.size() + 1);
    record[2] = 1;
    record[6] = static_cast<char>(kUpdateClass);
    record[kHead - 1] = 1;
    record += argument + '\0';
    std::string bytes;
    for (const char byte : record) {
        bytes += (bytes.empty() ? "" : ",") + std::to_string(static_cast<unsigned char>(byte));
    }
    return "{\"RAW\":[" + bytes + "]}";
}

}  // namespace

void CDelivery::Deliver(CAgent& agent, const ComponentEvent& event) {
    answers_.Set(MakeObjectCommand(kReadSystemStatus, 0, std::to_string(event.systemStatus)));
    answers_.Set(MakeObjectCommand(kReadComponentName, event.id, JsonString(event.name)));
    answers_.Set(MakeObjectCommand(kReadComponentDesignation, event.id, JsonString(event.designation)));
    const Command mail = answers_.Find(MakeCommand(kReadConfigurationValue, kMailForStatusAlert, {}));
    if (event.withoutMail) {
        Notice(agent, MakeCommand(kWriteConfigurationValue, kMailForStatusAlert, "0"));
    }
    Command command = MakeObjectCommand(CM_StatusTreeComponentInstanceStatus, event.id, std::to_string(event.status));
    command.ca = agent.Cabinet();
    command.st = kEvent;
    SipJson message;
    BuildMessage(command, message);
    ledger_.BeginEvent(event.id, event.name, event.designation, event.status);
    agent.SendEvent(message);
    ledger_.EndEvent(event.systemStatus);
    if (event.withoutMail && !mail.data.empty()) {
        Notice(agent, MakeCommand(kWriteConfigurationValue, kMailForStatusAlert, mail.data));
    }
}

void CDelivery::DeliverUpdates(CAgent& agent, std::uint32_t updates, std::uint32_t systemStatus) {
    answers_.Set(MakeObjectCommand(kReadSystemStatus, 0, std::to_string(systemStatus)));
    Command command = MakeObjectCommand(CM_UmServerUpdateAlert, 0, UpdateRecord(updates));
    command.ca = agent.Cabinet();
    command.st = kEvent;
    SipJson message;
    BuildMessage(command, message);
    agent.SendEvent(message);
}

Command CDelivery::Request(CAgent& agent, Command request) {
    request.ca = agent.Cabinet();
    SipJson message;
    BuildMessage(request, message);
    agent.Request(message);
    return CurrentCommand(MessageText(message), message.GetCmdIndex());
}

void CDelivery::Notice(CAgent& agent, Command notice) {
    notice.ca = agent.Cabinet();
    SipJson message;
    BuildMessage(notice, message);
    agent.SendNotice(message);
}
