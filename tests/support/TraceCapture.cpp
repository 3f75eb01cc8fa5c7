// SPDX-License-Identifier: Apache-2.0
#include "support/TraceCapture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <pthread.h>
#include <regex>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "platform/DebugSink.h"
#include "platform/diagnostics/TraceObjects.h"

namespace {

std::mutex lock;
std::vector<std::string> prints;
std::string awaited;
std::function<void()> reaction;
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
        if (format == nullptr || ::vasprintf(&text, format, arguments) < 0) {
            return;
        }
        std::unique_lock guard(lock);
        const std::string& print = prints.emplace_back(text);
        ::free(text);
        if (reaction && print.find(awaited) != std::string::npos) {
            const auto what = std::exchange(reaction, {});
            guard.unlock();
            what();
        }
    }
};

__attribute__((visibility("default"))) CCaptureSink Debug;

CTraceCapture::CTraceCapture(unsigned int level) {
    Clear();
    traceObjects.debugClient.SetDebugLevel(level);
}

CTraceCapture::~CTraceCapture() {
    traceObjects.debugClient.SetDebugLevel(0);
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

bool CTraceCapture::Await(const std::string& text, int count) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (Count(text) < count && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    return Count(text) >= count;
}

void CTraceCapture::Once(const std::string& text, std::function<void()> what) const {
    const std::lock_guard guard(lock);
    awaited = text;
    reaction = std::move(what);
}

std::string CTraceCapture::All() const {
    std::string all;
    for (const std::string& print : Prints()) {
        all += print;
    }
    return all;
}

std::string TracesByLevel(const std::function<void()>& scenario, const std::string& wanted) {
    static const std::regex newline("\n");
    static const std::regex changing(
        R"(((?:event|Record|object|dev =|, arg =|from|address =) 0x|\bfd=|sec=| on (?=\d))[0-9a-fA-Fx]+|)"
        R"((/dev/shm/em)\w{6}|((?:[Tt]hread|Id) ?=? ?0x0?)[0-9A-F]{8}\b)");
    std::vector<std::pair<std::string, unsigned int>> lines;  // a higher level adds lines to those of the lower ones
    for (unsigned int level = 1; level <= 5; ++level) {
        const CTraceCapture trace(level);
        scenario();
        std::vector<std::pair<std::string, unsigned int>> all;
        auto known = lines.begin();
        for (const std::string& print : trace.Prints()) {
            if (std::regex_search(print, std::regex(wanted))) {
                const std::string text =
                    std::regex_replace(std::regex_replace(print, newline, "\\n"), changing, "$1$2$3#");
                const bool isKnown = known != lines.end() && known->first == text;
                all.emplace_back(text, isKnown ? (known++)->second : level);
            }
        }
        lines = std::move(all);
    }
    std::string result;
    for (const auto& [text, level] : lines) {
        result += std::to_string(level) + " " + text + "\n";
    }
    return result;
}

void CTraceCapture::Clear() {
    const std::lock_guard guard(lock);
    prints.clear();
}
