#include "em_alert/AlertExtensionModule.h"
#include "platform/Trace.h"

bool CAlertExtensionModule::IsAlertPending() const {
    const std::size_t count = pendingAlerts_.Count();
    EM_TRACE(2, "\nEM_ALERT            : %d alerts are pending", static_cast<int>(count));
    return count != 0;
}

void CAlertExtensionModule::AddPendingAlert(SipJson& event) {
    const CCriticalSectionLock lock(pendingAlerts_.Lock());
    const std::size_t count = pendingAlerts_.Add(event);
    EM_TRACE(2, "\nEM_ALERT            : Alert 0x%04X-0x%04X added to pending alerts (%d)",
             event.GetCmdElemValue(event.GetCmdIndex(), "OC", 0), event.GetCmdElemValue(event.GetCmdIndex(), "OE", 0),
             static_cast<int>(count));
    FireAlertEvent(kPendingAlert);
}

bool CAlertExtensionModule::GetLastPendingAlert(SipJson& out) {
    const CCriticalSectionLock lock(pendingAlerts_.Lock());
    const SipJson* newest = pendingAlerts_.Newest();
    if (newest == nullptr) {
        return false;
    }
    out = *newest;
    return true;
}

void CAlertExtensionModule::ClearPendingAlerts() {
    const CCriticalSectionLock lock(pendingAlerts_.Lock());
    EM_TRACE(2, "\nEM_ALERT            : Clear all pending alerts (%d)", static_cast<int>(pendingAlerts_.Count()));
    pendingAlerts_.Clear();
}

bool CAlertExtensionModule::AcknowledgeAlert(SipJson& /*request*/) {
    if (!IsAlertPending()) {
        return true;
    }
    ClearPendingAlerts();
    StopBeepWhenNonePends();
    FireAlertEvent(kAcknowledgeAlerts);
    return true;
}

void CAlertExtensionModule::FireAlertEvent(unsigned int opCode) {
    SipJson event;
    event.SetCmd(event.GetCmd(), opCode, 0, 0, ServerCabinetNumber(), kWithoutStatus);
    event.SetDataUIntValue(1, kDone);
    FireEvent(event);
}
