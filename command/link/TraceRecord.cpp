#include "command/link/TraceRecord.h"

#include <cstdlib>
#include <string_view>

#include "agent/core/TraceSink.h"

namespace {

constexpr std::size_t kMostKept = 1000;  // a request makes a few dozen
constexpr std::string_view kMailResult = "Mail return code: ";

}  // namespace

std::optional<int> MailReturnCode(const std::string& print) {
    const auto at = print.find(kMailResult);
    return at == std::string::npos ? std::nullopt : std::optional(std::atoi(print.c_str() + at + kMailResult.size()));
}

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
                         MailReturnCode(print);
    const std::lock_guard guard(lock_);
    if (matters && traces_.size() < kMostKept) {
        traces_.push_back(print);
    }
}
