// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstdio>
#include <string>

#include "em_alert/frame/ExtensionModuleBase.h"
#include "platform/Cancellation.h"
#include "platform/diagnostics/Trace.h"
#include "sip/DataStruct.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

namespace {

/// What a line says of the data: a number itself, a structure as JSON, of everything else the length.
std::string DataSummary(const SipJson& message, int command) {
    if (unsigned int number{};
        message.GetCmdDataType(command) == rapidjson::kNumberType && message.GetCmdUIntData(command, number)) {
        return " Data " + std::to_string(static_cast<int>(number));
    }
    if (CDataStruct data; message.HasDataStruct() && message.GetCmdDataStruct(command, data)) {
        std::string json;
        CDataStruct::GetPrettyJson(json, data.Get(), ' ', 4);
        return " Data (JSON struct):\n" + json;
    }
    const unsigned int size = message.GetCmdDataSize(command);
    return size != 0 ? " Len " + std::to_string(static_cast<int>(size)) : std::string();
}

}  // namespace

void CExtensionModule::TraceSip(int level, const char* name, const SipJson& message) const {
    if (!IsTracingEnabled()) {
        return;
    }
    const int i = message.GetCmdIndex();
    const unsigned int moduleId = message.GetElem("MI");
    std::array<char, sizeof " CABID -2147483648"> cabinet{};
    if (message.HasCmdElem(i, "CA")) {
        std::snprintf(cabinet.data(), cabinet.size(), " CABID %04d", static_cast<int>(message.GetElem("CA")));
    }
    EM_TRACE(static_cast<unsigned int>(level), "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X%s MID 0x%04X%04X Stat 0x%02X%s",
             name, message.GetElem("OC"), message.GetElem("OE"), message.GetElem("OI"), cabinet.data(), moduleId >> 16,
             moduleId & 0xFFFF, message.GetCmdElemValue(i, "ST", kNoStatus), DataSummary(message, i).c_str());
}

void CExtensionModule::TraceSipAs(int level, const char* suffix, const SipJson& message) const {
    if (!IsTracingEnabled()) {
        return;
    }
    try {
        TraceSip(level, (std::string(GetName()) + suffix).c_str(), message);
    } catch (...) {  // out of memory: a trace is lost, the message is not
        LetCancellationPass();
        EM_TRACE(1, "\n%-20s: ## EXCEPTION while tracing a message! ##", GetName());
    }
}

void CExtensionModule::TraceRequestIn(const SipJson& message, int level) const {
    TraceSipAs(level, " (REQ)", message);
}

void CExtensionModule::TraceRequestOut(const SipJson& message, int level) const {
    TraceSipAs(level, " (RET)", message);
}

void CExtensionModule::TraceReply(const SipJson& message, int level) const {
    TraceSipAs(level, " (RPL)", message);
}
