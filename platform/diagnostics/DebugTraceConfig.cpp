// SPDX-License-Identifier: Apache-2.0
#include "platform/diagnostics/DebugTraceConfig.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "platform/Cancellation.h"
#include "platform/files/DirectoryEntries.h"

std::atomic<bool> CDebugTraceConfig::tracingEnabled{};

namespace {

constexpr char kGlobalFile[] = "global_trace.ini";
constexpr char kGlobalSection[] = "GlobalDebugSettings";

/// The names of the trace files in alphabetical order.
/// @return false when the directory cannot be read
bool ListTraceFiles(const std::string& directory, std::vector<std::string>& names) {
    const bool isRead = ForEachEntry(directory, [&names](const std::string& name) {
        if (name.find(".ini") != std::string::npos) {
            names.push_back(name);
        }
    });
    std::ranges::sort(names);
    return isRead;
}

/// Leaves the value as it is when the environment has none.
void ReadEnvironment(const char* name, unsigned int& value) {
    // The library is loaded before it has threads of its own; only a host that changes its environment at the same time
    // could disturb this.
    if (const char* text = std::getenv(name)) {  // NOLINT(concurrency-mt-unsafe)
        value = static_cast<unsigned int>(std::strtoul(text, nullptr, 10));
    }
}

}  // namespace

bool CDebugTraceConfig::IsOffBy(const char* directory) {
    std::vector<std::string> files;
    return ListTraceFiles(directory, files) && files.empty();
}

void CDebugTraceConfig::Initialise(const char* directory) {
    const CMutexLock lock(rereadLock_);
    directory_ = directory;
    std::vector<std::string> files;
    if (ListTraceFiles(directory_, files) && files.empty()) {
        return;
    }

    unsigned int interval = kNotSet;
    if (globalSection_.OpenSectionInIniFile(kGlobalSection, kGlobalFile, directory)) {
        globalSection_.GetNumberFromIniFile("DynamicUpdate", interval);
    }
    if (interval == kNotSet) {
        interval = 0;
    }
    ReadEnvironment("LUME_LOG_DYNAMIC_UPDATE", interval);
    updateInterval_ = interval;
    lastCheck_ = std::time(nullptr);

    unsigned int level = kNotSet;
    for (const std::string& file : files) {
        if (moduleSection_.OpenSectionInIniFile(moduleName_, file.c_str(), directory)) {
            moduleFile_ = file;
            LoadModuleSection(moduleSection_, level);
            break;
        }
    }
    if (level == kNotSet) {
        level = 0;
    }
    ReadEnvironment("LUME_LOG_DEBUG_LEVEL", level);
    SetDebugLevel(level);
}

void CDebugTraceConfig::SetDebugLevel(unsigned int level) {
    currentLevel_ = level;
    tracingEnabled = level != 0;
}

bool CDebugTraceConfig::LoadModuleSection(const CDebugTraceConfigFile& section, unsigned int& level) {
    unsigned int flags = traceFlags_;
    unsigned int memory = memoryTraces_;
    section.GetNumberFromIniFile("TraceFlags", flags);
    section.GetNumberFromIniFile("MemoryTracesFlag", memory);
    traceFlags_ = flags;
    memoryTraces_ = memory;
    return section.GetNumberFromIniFile("FileDebugLevel", level);
}

void CDebugTraceConfig::RereadWhenDue() {
    const unsigned int interval = updateInterval_.load(std::memory_order_relaxed);
    if (interval == 0) {
        return;
    }
    const std::time_t now = std::time(nullptr);
    const std::time_t last = lastCheck_.load(std::memory_order_relaxed);
    const bool due = now < last || now - last >= static_cast<std::time_t>(interval);
    if (!due || !rereadLock_.TryLock()) {
        return;
    }
    const CMutexLock lock(rereadLock_, std::adopt_lock);  // memory may run out on the way
    const CCancellationPause pause;
    lastCheck_ = now;
    Reread();
}

void CDebugTraceConfig::Reread() {
    using Change = CDebugTraceConfigFile::Change;
    if (globalSection_.CheckForChange() == Change::Newer &&
        globalSection_.OpenSectionInIniFile(kGlobalSection, kGlobalFile, directory_.c_str())) {
        unsigned int interval = updateInterval_;
        globalSection_.GetNumberFromIniFile("DynamicUpdate", interval);
        updateInterval_ = interval;
    }
    const Change change = moduleFile_.empty() ? Change::None : moduleSection_.CheckForChange();
    if ((change == Change::Newer || change == Change::Other) &&
        moduleSection_.OpenSectionInIniFile(moduleName_, moduleFile_.c_str(), directory_.c_str())) {
        unsigned int level{};
        if (LoadModuleSection(moduleSection_, level)) {
            // The tracing-enabled flag stays: a level of 0 in the file silences the prints, and a later change of the
            // file is still noticed.
            currentLevel_ = level;
        }
    }
}
