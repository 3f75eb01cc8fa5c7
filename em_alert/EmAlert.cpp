// SPDX-License-Identifier: Apache-2.0
#include "em_alert/EmAlert.h"

#include "em_alert/alert/AlertExtensionModule.h"
#include "em_alert/frame/ModuleInstance.h"
#include "platform/Cancellation.h"
#include "platform/diagnostics/Trace.h"

bool CreateExtensionModule(CIExtensionModule** out, void* /*parameter*/) {
    *out = new CAlertExtensionModule;
    return true;
}

bool EM_Create(CIExtensionModule** out, void* agentParameter) {
    if (out == nullptr) {
        EM_TRACE(1, "\nEM DLL (%-10s) : ## ERROR: Module could not be created!\n", GetModuleName());
        return false;
    }
    if (moduleInstance.module != nullptr) {
        EM_TRACE(1, "\nEM DLL (%-10s) : ## ERROR: Module already existing!\n", GetModuleName());
        *out = moduleInstance.module;
        return true;
    }
    EM_TRACE(2, "\nEM DLL (%-10s) : Create module", GetModuleName());
    const bool isCreated = CreateExtensionModule(&moduleInstance.module, agentParameter);
    *out = moduleInstance.module;
    if (!isCreated) {
        EM_TRACE(1, "\nEM DLL (%-10s) : ## ERROR: Module could not be created!\n", GetModuleName());
        return false;
    }
    return true;
}

bool EM_Delete() {
    try {
        if (moduleInstance.module == nullptr) {
            EM_TRACE(1, "\nEM DLL (%-10s) : Module already destroyed!", GetModuleName());
            return false;
        }
        EM_TRACE(1, "\nEM DLL (%-10s) : Destroy module...", GetModuleName());
        if (!DeleteExtensionModule(moduleInstance.module)) {
            EM_TRACE(1, "\nEM DLL (%-10s) : ## ERROR! Module could not be destroyed!", GetModuleName());
            return false;
        }
        moduleInstance.module = nullptr;
        EM_TRACE(1, "\nEM DLL (%-10s) : .. Module destroyed successfully!", GetModuleName());
        return true;
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1, "\nEM DLL (%-10s) : ## ERROR! Exception while destroying module!", GetModuleName());
        return false;
    }
}

const char* EM_GetModuleName() {
    return GetModuleName();
}

int EM_SetupAction(unsigned int action) {
    return SetupAction(action);
}
