// SPDX-License-Identifier: Apache-2.0
#include "platform/diagnostics/DebugClient.h"

#include <dlfcn.h>

#include "platform/Cancellation.h"
#include "platform/diagnostics/SysLogTraces.h"

void CDebugClient::Print(unsigned int level, const char* format, ...) {
    try {
        RereadWhenDue();
    } catch (...) {  // out of memory: the settings stay as they are
        LetCancellationPass();
    }
    if (level > DebugLevel()) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    PrintToSink(format, arguments);
    va_end(arguments);

    if (level == 0 && format != nullptr) {
        va_start(arguments, format);
        SysLogTraces::getConnection()->logMessageVaList(format, arguments);
        va_end(arguments);
    }
}

void CDebugClient::PrintAlways(unsigned int /*level*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PrintToSink(format, arguments);
    va_end(arguments);
}

void CDebugClient::PrintAlways(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    PrintToSink(format, arguments);
    va_end(arguments);
}

void CDebugClient::PrintToSink(const char* format, va_list arguments) {
    {
        const CCancellationPause pause;
        try {
            CIDebugSink* sink = sink_.load(std::memory_order_acquire);
            if (sink == nullptr) {
                sink = FindSink();
            }
            if (sink != nullptr) {
                sink->Print(format, arguments, ModuleName());
            }
        } catch (...) {  // the host's own, out of memory: what is traced matters more than its trace
            LetCancellationPass();
        }
    }
    ::pthread_testcancel();  // a thread that does nothing but trace can be killed, too
}

CIDebugSink* CDebugClient::FindSink() {
    for (void* scope : {RTLD_DEFAULT, RTLD_NEXT}) {
        auto* candidate = static_cast<CIDebugSink*>(::dlsym(scope, "Debug"));
        if (candidate != nullptr && candidate->IsActive()) {
            sink_.store(candidate, std::memory_order_release);
            return candidate;
        }
    }
    return nullptr;
}
