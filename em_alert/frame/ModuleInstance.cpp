// SPDX-License-Identifier: Apache-2.0
#include "em_alert/frame/ModuleInstance.h"

#include <iterator>

#include "em_alert/ExtensionModule.h"
#include "platform/diagnostics/Trace.h"

ModuleInstance moduleInstance;

bool DeleteExtensionModule(CIExtensionModule* module) {
    if (module == nullptr) {
        return false;
    }
    delete module;
    return true;
}

const char* GetModuleName() {
    return traceObjects.debugClient.ModuleName();
}

int SetupAction(unsigned int action) {
    static constexpr const char* kActionNames[] = {"BACKUP", "RESTORE", "CONVERT", "CLEANUP"};
    if (action >= 1 && action <= std::size(kActionNames)) {
        EM_TRACE(1, "\n\n%-20s: ## Setup action \"%s\" call - no action function defined\n", GetModuleName(),
                 kActionNames[action - 1]);
    } else {
        EM_TRACE(1, "\n\n%-20s: ## ERROR! Setup action call with unknown action type (%d) - no action defined!\n",
                 GetModuleName(), static_cast<int>(action));
    }
    return 1;
}
