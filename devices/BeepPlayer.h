// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "platform/Mutex.h"
#include "platform/threads/Event.h"
#include "platform/threads/Thread.h"

/// The one beeper thread with its stop event: plays a sequence over and over, until it is stopped or replaced. Any
/// thread may call any operation at any time; they happen one after the other.
///
/// Stopping waits for the thread, which first plays the tone that sounds to its end.
class CBeepPlayer {
public:
    CBeepPlayer() = default;
    /// Stops.
    ~CBeepPlayer();
    CBeepPlayer(const CBeepPlayer&) = delete;
    CBeepPlayer& operator=(const CBeepPlayer&) = delete;

    /// Stops what plays and starts the sequence from its first tone, endlessly, with 15 s between two passes.
    /// @param sequence  tone records as SpeakerBlock describes them; copied
    /// @return false, and silence, when it holds no whole tone (8 bytes), the thread cannot be started or the player is
    ///         closed
    bool Start(const std::vector<unsigned char>& sequence);

    void Stop();

    /// Stops, and stays silent until Open: what another thread is about to start comes too late.
    void Close();
    void Open();

private:
    void StopLocked() EM_REQUIRES(mutex_);

    CMutex mutex_;
    bool isOpen_ EM_GUARDED_BY(mutex_) = true;
    CEvent stopEvent_{false, true};  // manual reset; stays set until the next start
    CThread thread_ EM_GUARDED_BY(mutex_);
};
