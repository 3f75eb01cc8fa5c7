// SPDX-License-Identifier: Apache-2.0
#include "agent/core/ModuleLibrary.h"

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <link.h>
#include <utility>

#include "agent/core/Json.h"

namespace {

std::string LoaderError() {
    const char* text = ::dlerror();  // NOLINT(concurrency-mt-unsafe): glibc keeps it for each thread
    return text != nullptr ? text : "unknown error";
}

std::string PathOf(const std::string& mapLine) {
    const auto path = mapLine.find('/');
    return path != std::string::npos ? mapLine.substr(path) : std::string();
}

// The file that is mapped at an address. A line of the map begins "first-last", hexadecimal, last not included.
std::string MappedPathAt(std::uintptr_t address) {
    std::ifstream map("/proc/self/maps");
    for (std::string line; std::getline(map, line);) {
        char* dash = nullptr;
        const auto first = std::strtoull(line.c_str(), &dash, 16);
        const auto last = *dash == '-' ? std::strtoull(dash + 1, nullptr, 16) : 0;
        if (first <= address && address < last) {
            return PathOf(line);
        }
    }
    return {};
}

template <typename Function>
bool FindExport(void* library, const char* name, Function*& function, std::string& error) {
    void* address = ::dlsym(library, name);
    function = std::bit_cast<Function*>(address);
    if (address == nullptr) {
        error = LoaderError();
    }
    return address != nullptr;
}

}  // namespace

std::string FindModule(const char* installed) {
    std::error_code error;
    const auto folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    for (const char* place : {"../lib/libem_alert.so", installed}) {
        const auto path = (folder / place).lexically_normal();
        if (std::filesystem::exists(path, error)) {
            return path;
        }
    }
    throw CAgentError("the alert module is not beside " + folder.string() + ": say where with --module LIB");
}

CModuleLibrary::~CModuleLibrary() {
    if (handle_ != nullptr) {
        ::dlclose(handle_);
    }
}

bool CModuleLibrary::Open(const std::string& path, std::string& error) {
    handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        error = LoaderError();
        return false;
    }
    const link_map* loaded = nullptr;
    if (::dlinfo(handle_, RTLD_DI_LINKMAP, &loaded) == 0) {
        mappedPath_ = MappedPathAt(std::bit_cast<std::uintptr_t>(loaded->l_ld));
    }
    return true;
}

bool CModuleLibrary::FindExports(std::string& error) {
    decltype(&EM_SetupAction) setupAction = nullptr;
    return FindExport(handle_, "EM_Create", create_, error) && FindExport(handle_, "EM_Delete", delete_, error) &&
           FindExport(handle_, "EM_GetModuleName", name_, error) &&
           FindExport(handle_, "EM_SetupAction", setupAction, error);
}

bool CModuleLibrary::Close(std::string& error) {
    const bool closed = ::dlclose(std::exchange(handle_, nullptr)) == 0;
    if (!closed) {
        error = LoaderError();
    }
    return closed;
}

bool CModuleLibrary::IsMapped() const {
    std::ifstream map("/proc/self/maps");
    for (std::string line; std::getline(map, line);) {
        if (!mappedPath_.empty() && PathOf(line) == mappedPath_) {
            return true;
        }
    }
    return false;
}
