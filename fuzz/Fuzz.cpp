#include "fuzz/Fuzz.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/DebugSink.h"

// Not in the unnamed namespace: an object of such a type is not exported.

/// Formats each print, so that a trace with a wrong argument is found, and forgets it.
class CForgetfulSink final : public CIDebugSink {
public:
    bool IsActive() const override { return true; }
    __attribute__((format(printf, 2, 0))) void Print(const char* format, va_list arguments,
                                                     const char* /*moduleName*/) override {
        char text[4096];
        std::vsnprintf(text, sizeof text, format, arguments);
    }
};

/// Found by the code under test as it finds the agent's.
__attribute__((visibility("default"))) CForgetfulSink Debug;

long CFuzzInput::Number() {
    return std::strtol(Text().c_str(), nullptr, 10);
}

void Break(const char* promise) {
    std::fprintf(stderr, "Broken promise: %s\n", promise);
    std::abort();
}

CFuzzDirectory::CFuzzDirectory() : path_("/dev/shm/em_alert_fuzz.XXXXXX") {
    Expect(::mkdtemp(path_.data()) != nullptr, "there is a directory for files");
}

CFuzzDirectory::~CFuzzDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string CFuzzDirectory::Write(const std::string& name, const std::string& content) const {
    std::string path = path_ + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

std::string CFuzzDirectory::Read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool HasNoLoneLineFeed(std::string_view text) {
    for (std::size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1)) {
        if (at == 0 || text[at - 1] != '\r') {
            return false;
        }
    }
    return true;
}
