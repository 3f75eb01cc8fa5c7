// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "agent/speaker/WavWriter.h"

/// Listens to the speaker: tells each tone that is over in a line and writes it to a WAV file, which begins with the
/// first tone. For one thread at a time.
class CSpeakerRecorder {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// @param wav  null for none
    explicit CSpeakerRecorder(std::unique_ptr<CWavWriter> wav) : wav_(std::move(wav)) {}

    /// The speaker sounds like this from now on. Same as before: nothing happens.
    /// @param divisor  of the timer's clock; 0 for silence
    /// @return the line of the tone that is over by this, like "2300 Hz for 150 ms"; empty when there is none
    std::string Sound(std::uint32_t divisor, Time now);

private:
    std::string Finish(Time now);

    std::unique_ptr<CWavWriter> wav_;
    std::uint32_t divisor_ = 0;
    Time since_;  // of the tone that sounds
    Time begin_;  // of the file; set with the first tone
    bool begun_ = false;
};

/// The frequency that someone had in mind who programs this divisor: of those that lead to it, the roundest one in Hz.
unsigned int NominalHz(std::uint32_t divisor);
