// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <systemd/sd-event.h>

/// Something that the loop watches, until the object goes. Move only.
class CLoopSource {
public:
    CLoopSource() = default;

    bool IsSet() const { return source_ != nullptr; }

private:
    friend class CLoop;

    struct Release {
        void operator()(sd_event_source* source) const { ::sd_event_source_disable_unref(source); }
    };
    std::unique_ptr<std::function<void()>> work_;  // outlives the source, which points to it
    std::unique_ptr<sd_event_source, Release> source_;
};

/// The service's event loop. One thread; what it calls must not block. An exception out of that is told to the journal.
/// When it has ended, what is set up does nothing: what is still dealt with then must not care.
///
/// Failures to set something up (no memory, no descriptors) are std::system_error.
class CLoop {
public:
    CLoop();
    ~CLoop();
    CLoop(const CLoop&) = delete;
    CLoop& operator=(const CLoop&) = delete;

    /// Calls `work` while the descriptor is ready.
    /// @param events  EPOLLIN, EPOLLOUT
    CLoopSource Watch(int descriptor, std::uint32_t events, std::function<void()> work);
    static void ChangeEvents(CLoopSource& source, std::uint32_t events);

    /// Calls `work` once when `delay` has gone by, whatever happens to the clock on the wall.
    CLoopSource After(std::chrono::milliseconds delay, std::function<void()> work);

    /// The signal must be blocked in all threads.
    CLoopSource OnSignal(int signal, std::function<void()> work);

    /// Runs until Stop.
    void Run();
    void Stop() { ::sd_event_exit(event_, 0); }

private:
    sd_event* event_ = nullptr;
};
