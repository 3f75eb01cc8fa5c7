#include <string>

#include "em_alert/ExtensionModuleBase.h"
#include "em_alert/OperationCodes.h"
#include "platform/Cancellation.h"
#include "platform/Trace.h"
#include "sip/DataStruct.h"
#include "sip/SipJson.h"

void CExtensionModule::TraceSip(int level, const char* name, const SipJson& message) const {
    if (!IsTracingEnabled()) {
        return;
    }
    const int i = message.GetCmdIndex();
    const unsigned int oc = message.GetCmdElemValue(i, "OC", 0);
    const unsigned int oe = message.GetCmdElemValue(i, "OE", 0);
    const unsigned int oi = message.GetCmdElemValue(i, "OI", 0);
    const unsigned int moduleId = message.GetCmdElemValue(i, "MI", 0);
    const unsigned int miHigh = moduleId >> 16;
    const unsigned int miLow = moduleId & 0xFFFF;
    const unsigned int st = message.GetCmdElemValue(i, "ST", kNoStatus);
    const unsigned int size = message.GetCmdDataSize(i);
    const bool hasCabinet = message.HasCmdElem(i, "CA");
    const int ca = static_cast<int>(message.GetCmdElemValue(i, "CA", 0));

    if (unsigned int number = 0;
        message.GetCmdDataType(i) == rapidjson::kNumberType && message.GetCmdUIntData(i, number)) {
        const int data = static_cast<int>(number);
        if (hasCabinet) {
            EM_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X Data %d", name,
                     oc, oe, oi, ca, miHigh, miLow, st, data);
        } else {
            EM_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X Data %d", name, oc, oe, oi,
                     miHigh, miLow, st, data);
        }
    } else if (CDataStruct data; message.HasDataStruct() && message.GetCmdDataStruct(i, data)) {
        std::string json;
        CDataStruct::GetPrettyJson(json, data.Get(), ' ', 4);
        if (hasCabinet) {
            EM_TRACE(level,
                     "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X Data (JSON "
                     "struct):\n%s",
                     name, oc, oe, oi, ca, miHigh, miLow, st, json.c_str());
        } else {
            EM_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X Data (JSON struct):\n%s",
                     name, oc, oe, oi, miHigh, miLow, st, json.c_str());
        }
    } else if (size != 0) {
        if (hasCabinet) {
            EM_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X Len %d", name,
                     oc, oe, oi, ca, miHigh, miLow, st, static_cast<int>(size));
        } else {
            EM_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X Len %d", name, oc, oe, oi,
                     miHigh, miLow, st, static_cast<int>(size));
        }
    } else if (hasCabinet) {
        EM_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X CABID %04d MID 0x%04X%04X Stat 0x%02X", name, oc, oe, oi,
                 ca, miHigh, miLow, st);
    } else {
        EM_TRACE(level, "\n%-20s: OC 0x%04X-0x%04X OID 0x%04X MID 0x%04X%04X Stat 0x%02X", name, oc, oe, oi, miHigh,
                 miLow, st);
    }
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
