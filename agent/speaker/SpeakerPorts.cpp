// SPDX-License-Identifier: Apache-2.0
#include "agent/speaker/SpeakerPorts.h"

#include <cerrno>

namespace {

constexpr std::uint32_t kTimerData2 = 0x42;
constexpr std::uint32_t kTimerControl = 0x43;
constexpr std::uint32_t kControlPortB = 0x61;

constexpr std::uint32_t kChannel2SquareWave = 0xB6;
constexpr std::uint32_t kSpeakerOn = 0x03;         // timer gate and speaker data
constexpr std::uint32_t kWritableBits = 0x0F;      // of the control port
constexpr std::uint32_t kReadOnlyBits = 0x30;      // refresh toggle and timer output, as on an idle machine
constexpr std::uint32_t kNeighbours = 0x1CFFFF00;  // ports 0x62 to 0x64, which a four-byte access reaches as well

}  // namespace

int CSpeakerPorts::Write(std::uint32_t port, std::uint32_t width, std::uint32_t value) {
    switch (port) {
        case kTimerControl:
            if (width != 1 || value != kChannel2SquareWave) {
                return EINVAL;  // the other channels are the machine's clock
            }
            expect_ = Expect::LowByte;
            divisor_ = 0;
            return 0;
        case kTimerData2:
            return width == 1 ? WriteTimerData(value) : EINVAL;
        case kControlPortB:
            return WriteControl(width, value);
        default:
            return ENXIO;
    }
}

int CSpeakerPorts::WriteTimerData(std::uint32_t value) {
    if (value > 0xFF || expect_ == Expect::ControlWord) {
        return EINVAL;
    }
    if (expect_ == Expect::LowByte) {
        lowByte_ = value;
        expect_ = Expect::HighByte;
        return 0;
    }
    const std::uint32_t count = value << 8 | lowByte_;
    divisor_ = count != 0 ? count : 0x10000;
    expect_ = Expect::LowByte;
    return 0;
}

int CSpeakerPorts::WriteControl(std::uint32_t width, std::uint32_t value) {
    // A fourth byte other than 0 would be a command to the keyboard controller.
    if ((width != 1 && width != 4) || value > 0xFF) {
        return EINVAL;
    }
    control_ = value & kWritableBits;
    return 0;
}

int CSpeakerPorts::Read(std::uint32_t port, std::uint32_t width, std::uint32_t& value) const {
    if (port != kControlPortB) {
        return port == kTimerData2 || port == kTimerControl ? EINVAL : ENXIO;
    }
    if (width != 1 && width != 4) {
        return EINVAL;
    }
    value = control_ | kReadOnlyBits | (width == 4 ? kNeighbours : 0);
    return 0;
}

std::uint32_t CSpeakerPorts::AudibleDivisor() const {
    return (control_ & kSpeakerOn) == kSpeakerOn ? divisor_ : 0;
}
