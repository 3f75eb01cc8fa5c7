#include "support/TraceCapture.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <pthread.h>

#include <gtest/gtest.h>

#include "platform/DebugSink.h"
#include "platform/ModuleObjects.h"

namespace {

std::mutex lock;
std::vector<std::string> prints;
std::atomic<bool> isSinkActive{true};

}  // namespace

// Not in the unnamed namespace: an object of such a type is not exported.
class CCaptureSink final : public CIDebugSink {
public:
    bool IsActive() const override { return isSinkActive; }
    __attribute__((format(printf, 2, 0))) void Print(const char* format, va_list arguments,
                                                     const char* moduleName) override {
        ::pthread_testcancel();  // as in any sink that writes to a file
        EXPECT_STREQ(moduleName, "EM_ALERT");
        char* text = nullptr;
        if (::vasprintf(&text, format, arguments) >= 0) {
            const std::lock_guard guard(lock);
            prints.emplace_back(text);
            ::free(text);
        }
    }
};

__attribute__((visibility("default"))) CCaptureSink Debug;

CTraceCapture::CTraceCapture(unsigned int level) {
    Clear();
    moduleObjects.debugClient.SetDebugLevel(level);
}

CTraceCapture::~CTraceCapture() {
    moduleObjects.debugClient.SetDebugLevel(0);
}

std::vector<std::string> CTraceCapture::Prints() const {
    const std::lock_guard guard(lock);
    return prints;
}

void CTraceCapture::SetActive(bool isActive) {
    isSinkActive = isActive;
}

bool CTraceCapture::Has(const std::string& text) const {
    return Count(text) > 0;
}

int CTraceCapture::Count(const std::string& text) const {
    const std::lock_guard guard(lock);
    return static_cast<int>(std::count_if(
        prints.begin(), prints.end(), [&](const std::string& print) { return print.find(text) != std::string::npos; }));
}

std::string CTraceCapture::All() const {
    std::string all;
    for (const std::string& print : Prints()) {
        all += print;
    }
    return all;
}

void CTraceCapture::Clear() {
    const std::lock_guard guard(lock);
    prints.clear();
}
