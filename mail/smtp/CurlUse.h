// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>

#include <curl/curl.h>

/// One use of libcurl, by one thread, from before its first call to behind its last. Any thread.
///
/// A host that exits without stopping the module cleans libcurl's own libraries up while the module's threads run on.
/// So the exit first tells all uses to end, and waits for them; for 3 s at most, which a transfer that is told to end
/// never takes.
class CCurlUse {
public:
    /// Initialises libcurl if nobody has yet.
    static void Prepare() { Library(); }

    CCurlUse();
    ~CCurlUse() { --uses_; }
    CCurlUse(const CCurlUse&) = delete;
    CCurlUse& operator=(const CCurlUse&) = delete;

    /// @return a handle that the caller cleans up before this use ends; null when libcurl does not work or the process
    ///         exits
    static CURL* NewHandle();

    /// True when the process exits: what runs has to end.
    static bool MustEnd() { return exiting_; }

    /// True when libcurl stays in memory until the process ends, so that a thread in which it looks a name up may
    /// outlive its transfer, and the module.
    static bool OutlivesModule();

private:
    class CLibrary;
    static const CLibrary& Library();

    static inline std::atomic<int> uses_{};
    static inline std::atomic<bool> exiting_{};
};
