// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "em_alert/EmAlert.h"

/// The module beside this program: where the build puts it, or where the package does.
/// @param installed  the latter's path, from the program's folder
/// @throw CAgentError when it is at neither place
std::string FindModule(const char* installed);

/// A module's shared library: loaded, its exports found, and really gone from memory after Close. One thread.
class CModuleLibrary {
public:
    CModuleLibrary() = default;
    ~CModuleLibrary();
    CModuleLibrary(const CModuleLibrary&) = delete;
    CModuleLibrary& operator=(const CModuleLibrary&) = delete;
    CModuleLibrary(CModuleLibrary&&) = delete;
    CModuleLibrary& operator=(CModuleLibrary&&) = delete;

    /// Loads the library with all its symbols bound.
    /// @param error  receives the loader's words on failure
    bool Open(const std::string& path, std::string& error);

    /// Finds the four exports; none may be called before.
    /// @param error  receives the name of a missing one
    bool FindExports(std::string& error);

    bool Create(CIExtensionModule*& module) { return create_(&module, nullptr); }
    bool Delete() { return delete_(); }
    const char* Name() { return name_(); }

    /// Unloads the library.
    bool Close(std::string& error);

    /// Looks into the process's memory map for the library that was loaded last.
    bool IsMapped() const;

private:
    void* handle_ = nullptr;
    decltype(&EM_Create) create_ = nullptr;
    decltype(&EM_Delete) delete_ = nullptr;
    decltype(&EM_GetModuleName) name_ = nullptr;
    std::string mappedPath_;  // as the kernel writes it in the memory map
};
