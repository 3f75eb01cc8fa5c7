#pragma once

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "em_alert/EmAlert.h"
#include "em_alert/ExtensionModule.h"

/// The library as an agent loads it.
class CLoadedLibrary {
public:
    CLoadedLibrary() : handle_(::dlopen(EM_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        EXPECT_NE(handle_, nullptr) << ::dlerror();
        Find("EM_Create", create);
        Find("EM_Delete", remove);
        Find("EM_GetModuleName", name);
        Find("EM_SetupAction", setupAction);
    }
    ~CLoadedLibrary() { EXPECT_EQ(::dlclose(handle_), 0); }
    CLoadedLibrary(const CLoadedLibrary&) = delete;
    CLoadedLibrary& operator=(const CLoadedLibrary&) = delete;

    /// Creates the module and takes it as far as the agent's work, with the cabinet number 0.
    CIExtensionModule* StartModule(CISwitch& agent) const {
        CIExtensionModule* module = nullptr;
        EXPECT_TRUE(create(&module, nullptr));
        module->SetServerCabinetNumber(0);
        EXPECT_TRUE(module->Start(&agent, 1));
        module->OnSwitchStarted(nullptr);
        return module;
    }

    decltype(&EM_Create) create = nullptr;
    decltype(&EM_Delete) remove = nullptr;
    decltype(&EM_GetModuleName) name = nullptr;
    decltype(&EM_SetupAction) setupAction = nullptr;

private:
    template <typename Function>
    void Find(const char* symbol, Function& function) {
        function = reinterpret_cast<Function>(::dlsym(handle_, symbol));
        ASSERT_NE(function, nullptr) << symbol;
    }

    void* handle_;
};
