// SPDX-License-Identifier: Apache-2.0
#include "mail/smtp/CurlUse.h"

#include <chrono>
#include <dlfcn.h>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr auto kLongestWait = 3s;

bool KeepLoaded() {
    Dl_info library{};
    return ::dladdr(reinterpret_cast<const void*>(&curl_easy_init), &library) != 0 &&
           ::dlopen(library.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE) != nullptr;
}

}  // namespace

/// Made by the first use, after libcurl's own libraries have asked to be cleaned up at exit, so that it goes before
/// them. libcurl is not cleaned up: other parts of the host may use it as well.
class CCurlUse::CLibrary {
public:
    CLibrary() : staysLoaded_(KeepLoaded()) {
        // Should memory be short now, curl_easy_init tries again.
        static_cast<void>(curl_global_init(CURL_GLOBAL_DEFAULT));
    }
    ~CLibrary() {
        exiting_ = true;
        const auto end = std::chrono::steady_clock::now() + kLongestWait;
        while (uses_ != 0 && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(10ms);
        }
    }
    CLibrary(const CLibrary&) = delete;
    CLibrary& operator=(const CLibrary&) = delete;

    bool StaysLoaded() const { return staysLoaded_; }

private:
    const bool staysLoaded_;
};

const CCurlUse::CLibrary& CCurlUse::Library() {
    static const CLibrary library;
    return library;
}

CCurlUse::CCurlUse() {
    ++uses_;
    Library();
}

CURL* CCurlUse::NewHandle() {
    return exiting_ ? nullptr : curl_easy_init();
}

bool CCurlUse::OutlivesModule() {
    return Library().StaysLoaded();
}
