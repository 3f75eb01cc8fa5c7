// SPDX-License-Identifier: Apache-2.0
#include "devices/DeviceBeeper.h"

#include <unistd.h>

#include "devices/DeviceBusIo.h"
#include "platform/diagnostics/Trace.h"

namespace {

constexpr char kBusDevice[] = "/dev/pci/smbus";

// Not the timer's crystal (1193182 Hz): tones were always computed from this figure, and are to stay as they are.
constexpr int kTimerClock = 1193167;

constexpr std::uint32_t kTimerData2 = 0x42;
constexpr std::uint32_t kTimerControl = 0x43;
constexpr std::uint32_t kSpeakerControl = 0x61;

constexpr std::uint32_t kSquareWaveOnChannel2 = 0xB6;  // low byte then high byte, mode 3, binary
constexpr std::uint32_t kSpeakerBits = 0x03;           // timer gate and speaker data

// The driver is asked for one byte, except that switching off has always been done with four.
constexpr std::uint32_t kByte = 1;
constexpr std::uint32_t kSwitchOffWidth = 4;

void SetTone(CDeviceBusIo& bus, int divisor) {
    if (!bus.WritePort(kTimerControl, kByte, kSquareWaveOnChannel2)) {
        EM_TRACE(1, "\nCDeviceBeeper       : ERROR 0x%X! FAILED to write TIMER1_CONTROL_PORT!", bus.LastError());
    }
    const auto bits = static_cast<std::uint32_t>(divisor);
    if (!bus.WritePort(kTimerData2, kByte, bits & 0xFF)) {
        EM_TRACE(1, "\nCDeviceBeeper       : ERROR 0x%X! FAILED to write TIMER1_DATA_PORT2 (Low byte)!",
                 bus.LastError());
    }
    if (!bus.WritePort(kTimerData2, kByte, (bits >> 8) & 0xFF)) {
        EM_TRACE(1, "\nCDeviceBeeper       : ERROR 0x%X! FAILED to write TIMER1_DATA_PORT2 (High byte)!",
                 bus.LastError());
    }
}

/// Reads the control port, clears and sets bits of its low byte, and writes that back.
bool ChangeControlPort(CDeviceBusIo& bus, std::uint32_t width, std::uint32_t keep, std::uint32_t set) {
    unsigned char control{};
    if (!bus.ReadPort(kSpeakerControl, width, control)) {
        EM_TRACE(1, "\nCDeviceBeeper       : ERROR 0x%X! FAILED to read SPEAKER_CONTROL_PORT!", bus.LastError());
        return false;
    }
    if (!bus.WritePort(kSpeakerControl, width, (control & keep) | set)) {
        EM_TRACE(1, "\nCDeviceBeeper       : ERROR 0x%X! FAILED to write SPEAKER_CONTROL_PORT", bus.LastError());
        return false;
    }
    return true;
}

/// Switches the speaker off at the end of its scope, whatever happens in between: no tone is ever left on.
class CSpeakerOff {
public:
    explicit CSpeakerOff(CDeviceBusIo& bus) : bus_(bus) {}
    ~CSpeakerOff() {
        const bool off = ChangeControlPort(bus_, kSwitchOffWidth, 0xFF & ~kSpeakerBits, 0);
        EM_TRACE(4, "\nCDeviceBeeper       : Switch beeper off: %s", off ? "OK" : "ERROR");
    }
    CSpeakerOff(const CSpeakerOff&) = delete;
    CSpeakerOff& operator=(const CSpeakerOff&) = delete;

private:
    CDeviceBusIo& bus_;
};

void SoundFor(CDeviceBusIo& bus, int hz, int msec) {
    const CSpeakerOff atEnd(bus);
    const bool on = ChangeControlPort(bus, kByte, 0xFF, kSpeakerBits);
    EM_TRACE(4, "\nCDeviceBeeper       : Switch beeper on (%i Hz): %s", hz, on ? "OK" : "ERROR");
    ::usleep(static_cast<unsigned int>(msec) * 1000U);
}

}  // namespace

bool CDeviceBeeper::Beep(int hz, int msec) {
    EM_TRACE(3, "\nCDeviceBeeper       : Beep %d Hz %d msec", hz, msec);
    EM_TRACE(4, "\nCDeviceBeeper       : Beep using SCSBB");
    CDeviceBusIo bus(kBusDevice);
    if (bus.IsConnected()) {
        SetTone(bus, kTimerClock / hz);
        SoundFor(bus, hz, msec);
    }
    return true;
}
