// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>

class CIExtensionModule;

/// What the module frame keeps once for a loaded library.
struct ModuleInstance {
    /// The one module object; set by EM_Create, cleared by EM_Delete. Not locked: the exports are not called
    /// concurrently.
    CIExtensionModule* module = nullptr;

    /// The cabinet number of this server, as the agent told it. Any thread.
    std::atomic<unsigned int> serverCabinetNumber{};
    std::atomic<bool> serverCabinetNumberKnown{};
};

extern ModuleInstance moduleInstance;

/// Makes the alert module. An exception of its construction passes on, without a leak.
/// @return true
bool CreateExtensionModule(CIExtensionModule** out, void* parameter);

/// Destroys a module through its virtual destructor.
/// @return false for null
bool DeleteExtensionModule(CIExtensionModule* module);

const char* GetModuleName();

/// Traces a set-up action; there is no work for any.
/// @return 1
int SetupAction(unsigned int action);
