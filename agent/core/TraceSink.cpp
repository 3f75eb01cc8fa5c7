#include "agent/core/TraceSink.h"

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string_view>
#include <system_error>

#include "agent/core/Json.h"
#include "agent/core/TextOutput.h"

constinit CTraceSink Debug;

namespace {

// Prints begin with a newline and end without one; on a terminal whole lines are needed.
__attribute__((format(printf, 2, 0))) void PrintOn(CITextOutput& terminal, const char* format, va_list arguments) {
    char* text = nullptr;
    const int length = ::vasprintf(&text, format, arguments);
    if (length < 0) {
        return;
    }
    const std::unique_ptr<char, void (*)(void*)> owner(text, std::free);
    const std::string_view print(text, static_cast<std::size_t>(length));
    try {
        terminal.Print(std::string(print.substr(print.starts_with('\n') ? 1 : 0)) + "\n");
    } catch (const std::exception&) {
        std::fputs(text, stderr);
    }
}

}  // namespace

void CTraceSink::Print(const char* format, va_list arguments, const char* /*moduleName*/) {
    if (!shown_) {
        return;
    }
    if (CITextOutput* terminal = terminal_) {
        PrintOn(*terminal, format, arguments);
        return;
    }
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
