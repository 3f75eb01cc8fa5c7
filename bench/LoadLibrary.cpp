// SPDX-License-Identifier: Apache-2.0

// Loads a library once, in a process that holds nothing else, and prints "SECONDS KILOBYTES": the processor time of
// dlopen, and the resident memory afterwards; of a module that has the exports, after its start as well.
//
//     load_library LIBRARY

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>

#include "em_alert/EmAlert.h"
#include "testing/SilentSwitch.h"

namespace {

double ProcessorSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

long ResidentKilobytes() {
    char line[256];
    long kilobytes = -1;
    std::FILE* const status = std::fopen("/proc/self/status", "re");
    while (std::fgets(line, sizeof line, status) != nullptr && std::sscanf(line, "VmRSS: %ld", &kilobytes) != 1) {
    }
    std::fclose(status);
    return kilobytes;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    const double begin = ProcessorSeconds();
    void* const library = ::dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    const double taken = ProcessorSeconds() - begin;
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", ::dlerror());
        return 1;
    }
    CSilentSwitch agent;
    CIExtensionModule* module = nullptr;
    auto* const create = reinterpret_cast<decltype(&EM_Create)>(::dlsym(library, "EM_Create"));
    if (create != nullptr && create(&module, nullptr) && module->Start(&agent, 1)) {
        module->OnSwitchStarted(nullptr);
    }
    std::printf("%.9f %ld\n", taken, ResidentKilobytes());
    std::fflush(stdout);
    std::_Exit(0);  // the module is not stopped: that takes time, and tells nothing
}
