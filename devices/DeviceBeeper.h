// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The PC speaker, driven by channel 2 of the interval timer and two bits of the system control port.
class CDeviceBeeper {
public:
    /// Sounds one tone and returns when it is over. Without the bus-I/O driver it is silent and returns at once. Any
    /// thread; nothing is kept between calls, but two tones at a time disturb each other.
    /// @param hz  HAZARD: 0 divides by zero, so callers pass anything else. Below 19 Hz the timer's 16 bits wrap, and a
    ///            negative number gives the low 16 bits of a negative divisor.
    /// @param msec  the product in microseconds has 32 bits, so it wraps at about 71 minutes
    /// @return true always; failures are traced
    static bool Beep(int hz, int msec);
};
