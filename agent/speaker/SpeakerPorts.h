// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

/// The hardware behind the PC speaker: channel 2 of the interval timer (ports 0x42 and 0x43) and the system control
/// port B (0x61). It takes what the real ports take without harm to the machine, and refuses the rest. Values are
/// compared as they are written, so all that is read is the same in each run: bits of the control port that flicker on
/// real hardware stand still.
class CSpeakerPorts {
public:
    /// @param width  bytes: 1, on the control port also 4
    /// @return 0, or an errno value: ENXIO for another port, EINVAL for a width or value that the port does not take
    int Write(std::uint32_t port, std::uint32_t width, std::uint32_t value);
    /// @param value  left alone on failure
    int Read(std::uint32_t port, std::uint32_t width, std::uint32_t& value) const;

    /// What the timer divides its clock by while the speaker sounds, 1 to 65536; 0 while it is silent.
    std::uint32_t AudibleDivisor() const;

private:
    enum class Expect { ControlWord, LowByte, HighByte };

    int WriteTimerData(std::uint32_t value);
    int WriteControl(std::uint32_t width, std::uint32_t value);

    Expect expect_ = Expect::ControlWord;
    std::uint32_t lowByte_ = 0;
    std::uint32_t divisor_ = 0;  // 0 until both bytes were written
    std::uint32_t control_ = 0;  // the four writable bits of the control port
};
