#include "em_alert/AlertExtensionModule.h"
#include "em_alert/SettingTrace.h"

void CAlertExtensionModule::LoadConfiguration() {
    LoadSettings(SettingRow::Load::First);
    mailSettings_.ImportWhenMissing();
    ReadAlerterSmtpSettings();
    LoadSettings(SettingRow::Load::AfterMailServers);
}

void CAlertExtensionModule::LoadSettings(SettingRow::Load when) {
    for (const SettingRow& row : SettingTable()) {
        if (row.load == when) {
            LoadSetting(row);
        }
    }
}

void CAlertExtensionModule::LoadSetting(const SettingRow& row) {
    SipJson request;
    request.SetCmd(request.GetCmd(), kReadConfigurationValue, row.id, 0, ServerCabinetNumber(), kWithoutStatus);
    SyncRequest(request, kRequestTimeout);
    SettingValue value;
    if (!request.HasReplyData() || !row.Take(request, value)) {
        return;
    }
    settings_.Change([&](AlertSettings& settings) { row.Store(settings, value); });
    if (row.IsSwitch()) {
        TraceSetting(row.loadTrace, value.number != 0 ? "enabled" : "disabled");
    } else if (row.IsNumber()) {
        TraceSetting(row.loadTrace, value.number);
    } else {
        TraceSetting(row.loadTrace, value.text.c_str());
    }
}

bool CAlertExtensionModule::RequestText(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId,
                                        std::string& text) {
    SipJson request;
    request.SetCmd(request.GetCmd(), opCode, opCodeExt, objectId, ServerCabinetNumber(), kWithoutStatus);
    SyncRequest(request, kRequestTimeout);
    return request.HasReplyData() && request.GetCmdDataString(0, text, SipJson::kNoLimit);
}

bool CAlertExtensionModule::RequestNumber(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId,
                                          unsigned int& number) {
    SipJson request;
    request.SetCmd(request.GetCmd(), opCode, opCodeExt, objectId, ServerCabinetNumber(), kWithoutStatus);
    SyncRequest(request, kRequestTimeout);
    return request.HasReplyData() && request.GetCmdUIntData(0, number);
}

bool CAlertExtensionModule::RequestMessageTemplate(std::uint32_t errorCode, std::string& messageTemplate) {
    SipJson request;
    request.SetCmd(request.GetCmd(), kReadMessageTemplate, 0, 0, ServerCabinetNumber(), kWithoutStatus);
    request.SetDataUIntValue(errorCode, kNoStatus);
    SyncRequest(request, kRequestTimeout);
    return request.HasReplyData() && request.GetCmdDataString(0, messageTemplate, SipJson::kNoLimit);
}
