#include "agent/TraceSink.h"

#include <cerrno>
#include <system_error>

#include "agent/Json.h"

constinit CTraceSink Debug;

void CTraceSink::Print(const char* format, va_list arguments, const char* /*moduleName*/) {
    std::FILE* file = file_.load(std::memory_order_relaxed);
    file = file != nullptr ? file : stderr;
    std::vfprintf(file, format, arguments);
    std::fflush(file);
}

void CTraceSink::UseFile(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
        throw CAgentError("cannot write " + path + ": " + std::generic_category().message(errno));
    }
    file_ = file;
}
