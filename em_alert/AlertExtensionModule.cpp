#include "em_alert/AlertExtensionModule.h"

#include <algorithm>
#include <cstring>

#include "em_alert/EmAlert.h"
#include "em_alert/ModuleInstance.h"
#include "platform/Cancellation.h"
#include "platform/Trace.h"

namespace {

void TraceBanner() {
    EM_TRACE(1, "\n\n------------------------------------------------------------------------------------------");
}

void TraceRule() {
    EM_TRACE(1, "\n------------------------------------------------------------------------------------------\n");
}

template <std::size_t size>
void SetText(char (&field)[size], const char* text) {
    std::memset(field, 0, size);
    std::strncpy(field, text, size - 1);
}

}  // namespace

CAlertExtensionModule::CAlertExtensionModule() : CTaskSerializer<SipJson>(kTaskLevels, kTaskQueueBytes) {}

CAlertExtensionModule::~CAlertExtensionModule() {
    // The worker runs this class's OnTaskExecution; a module that nobody stopped must not lose its members under it.
    stopping_ = true;
    TerminateSerialization();
}

bool CAlertExtensionModule::GetProperties(_ExtensionModuleProperties& properties) {
    if (properties.size < sizeof properties) {
        return false;
    }
    properties.capabilities |= 0x03;
    properties.capabilities2 |= 0x03;
    properties.property26 = 100;
    properties.property42 = 2;
    SetText(properties.moduleName, GetName());
    std::fill(std::begin(properties.reservedText), std::end(properties.reservedText), std::uint8_t{0});
    properties.reserved142 = 0;
    properties.reserved144 = 0;
    properties.reserved145 = 0;
    SetText(properties.moduleDescription, "Alert handling module");
    properties.reserved242 = 0;
    properties.reserved244 = 0;
    properties.reserved245 = 0;
    return true;
}

bool CAlertExtensionModule::DetectHardware() {
    return true;
}

const char* CAlertExtensionModule::GetName() const {
    return GetModuleName();
}

bool CAlertExtensionModule::Start(CISwitch* agent, unsigned int moduleId) {
    TraceBanner();
    EM_TRACE(1, "\n### Starting module %s ###\n", GetName());
    stopping_ = false;
    beeper_.Open();
    CExtensionModule::Start(agent, moduleId);
    EM_TRACE(1, "\n\n### Start of module %s completed successfully ###", GetName());
    TraceRule();
    return true;
}

void CAlertExtensionModule::OnSwitchStarted(void* parameter) {
    TraceBanner();
    EM_TRACE(1, "\nEM_ALERT            : ## OnSwitchStarted()\n");
    CExtensionModule::OnSwitchStarted(parameter);
    try {
        LoadConfiguration();
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1, "\nEM_ALERT            : ERROR! Exception while loading the configuration!");
    }
    StartSerialization();
    EnableEvents(true);
    EM_TRACE(1, "\n\nEM_ALERT            : ## OnSwitchStarted() finished");
    TraceRule();
}

bool CAlertExtensionModule::Stop() {
    TraceBanner();
    EM_TRACE(1, "\n### Stopping module %s ###\n", GetName());
    stopping_ = true;
    TerminateSerialization();
    beeper_.Close();
    CExtensionModule::Stop();
    EM_TRACE(1, "\n\n### Stop of module %s completed successfully ###", GetName());
    TraceRule();
    return true;
}
