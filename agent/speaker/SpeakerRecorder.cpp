// SPDX-License-Identifier: Apache-2.0
#include "agent/speaker/SpeakerRecorder.h"

#include <cmath>

namespace {

constexpr std::uint32_t kTimerClock = 1193182;  // Hz, the timer's crystal

double Seconds(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

}  // namespace

unsigned int NominalHz(std::uint32_t divisor) {
    const unsigned int highest = kTimerClock / divisor;
    const unsigned int below = kTimerClock / (divisor + 1);
    for (const unsigned int step : {1000U, 100U, 10U, 1U}) {
        const unsigned int round = highest - highest % step;
        if (round > below) {
            return round;
        }
    }
    // A divisor this large stands for less than 1 Hz.
    return (kTimerClock + divisor / 2) / divisor;
}

std::string CSpeakerRecorder::Sound(std::uint32_t divisor, Time now) {
    if (divisor == divisor_) {
        return {};
    }
    std::string line;
    if (divisor_ != 0) {
        line = Finish(now);
    }
    divisor_ = divisor;
    since_ = now;
    if (!begun_) {
        begun_ = true;
        begin_ = now;
    }
    return line;
}

std::string CSpeakerRecorder::Finish(Time now) {
    // Whole milliseconds: a sleep is never too short, and a little too long on a busy machine.
    const auto length = std::chrono::duration_cast<std::chrono::milliseconds>(now - since_);
    std::string line = std::to_string(NominalHz(divisor_)) + " Hz for " + std::to_string(length.count()) + " ms";
    if (wav_ != nullptr &&
        !wav_->Tone(Seconds(since_ - begin_), Seconds(now - since_), static_cast<double>(kTimerClock) / divisor_)) {
        line += " (not in the WAV file any more: it is full or cannot be written)";
        wav_.reset();
    }
    return line;
}
