#include <sys/stat.h>

#include "em_alert/AlertExtensionModule.h"
#include "em_alert/SettingTrace.h"

void CAlertExtensionModule::LoadConfiguration() {
    LoadSettings(SettingRow::Load::First);
    PrepareNotificationFile();
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
    request.SetCmd(request.GetCmd(), 0xE001, row.id, 0, ServerCabinetNumber(), kWithoutStatus);
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

/// Makes the notification file of a server that has only the RAID manager's settings yet.
void CAlertExtensionModule::PrepareNotificationFile() {
    const CMutexLock lock(notificationLock_);
    struct stat status {};
    if (::stat(notification_.Path().c_str(), &status) == 0) {
        return;
    }
    if (notification_.ImportTamracSettings(nullptr)) {
        notification_.Save();
        EM_TRACE(3,
                 "\nEM_ALERT            : Hostwarden RAID settings imported into shared notification configuration "
                 "file!");
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
    request.SetCmd(request.GetCmd(), 0x0B21, 0, 0, ServerCabinetNumber(), kWithoutStatus);
    request.SetDataUIntValue(errorCode, 22);
    SyncRequest(request, kRequestTimeout);
    return request.HasReplyData() && request.GetCmdDataString(0, messageTemplate, SipJson::kNoLimit);
}
