// SPDX-License-Identifier: Apache-2.0
#include "em_alert/values/AlertSettings.h"

#include <initializer_list>
#include <utility>

namespace {

struct Tone {
    std::uint32_t hertz;
    std::uint32_t milliseconds;
    std::uint32_t pauseMilliseconds;
};

constexpr Tone kLowTone = {2300, 150, 100};
constexpr Tone kHighTone = {2400, 400, 100};

/// The wire form of a sequence: three little-endian 32-bit numbers a tone.
std::vector<unsigned char> EncodeSequence(std::initializer_list<Tone> tones) {
    std::vector<unsigned char> bytes(tones.size() * sizeof(Tone));
    std::size_t at = 0;
    for (const Tone& tone : tones) {
        for (const std::uint32_t number : {tone.hertz, tone.milliseconds, tone.pauseMilliseconds}) {
            for (unsigned shift = 0; shift < 32; shift += 8) {
                bytes.at(at++) = static_cast<unsigned char>(number >> shift);
            }
        }
    }
    return bytes;
}

}  // namespace

AlertSettings::AlertSettings()
    : beepWarningSequence(EncodeSequence({kLowTone, kHighTone, kLowTone})),
      beepErrorSequence(EncodeSequence({kLowTone, kHighTone, kLowTone, kHighTone, kLowTone, kHighTone})) {}

std::shared_ptr<const AlertSettings> CAlertSettingsStore::Get() const {
    const CMutexLock lock(lock_);
    return current_;
}

void CAlertSettingsStore::Change(const std::function<void(AlertSettings&)>& change) {
    const CMutexLock lock(lock_);
    auto next = std::make_shared<AlertSettings>(*current_);
    change(*next);
    current_ = std::move(next);
}
