// SPDX-License-Identifier: Apache-2.0
#include "command/link/TraceRecord.h"

#include "agent/traces/ModuleTraces.h"
#include "agent/traces/TraceSink.h"

namespace {

constexpr std::size_t kMostKept = 1000;  // a request makes a few dozen

}  // namespace

CTraceRecord::CTraceRecord() {
    Debug.Listen([this](const std::string& print) { Take(print); });
}

CTraceRecord::~CTraceRecord() {
    Debug.Listen({});
}

void CTraceRecord::Clear() {
    const std::lock_guard guard(lock_);
    traces_.clear();
}

Traces CTraceRecord::Get() const {
    const std::lock_guard guard(lock_);
    return traces_;
}

void CTraceRecord::Take(const std::string& print) {
    ++count_;
    const bool matters = print.find("ERROR!") != std::string::npos || print.find("not loaded: ") != std::string::npos ||
                         MailReturnCode(print) || IsMailSkipped(print);
    const std::lock_guard guard(lock_);
    if (matters && traces_.size() < kMostKept) {
        traces_.push_back(print);
    }
}
