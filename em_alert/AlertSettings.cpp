#include "em_alert/AlertSettings.h"

#include <utility>

#include "sip/SipJson.h"

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

using Row = SettingRow;
using Load = SettingRow::Load;

constexpr Row kSettingTable[] = {
    {kBeepAlertSetting, Load::First, &AlertSettings::beepAlertEnabled, "\nEM_ALERT            : Beep alert %s",
     "\nEM_ALERT (REPLY)    : Beep alert %s"},
    {0x0410, Load::First, &AlertSettings::mailForStatusAlertEnabled, "\nEM_ALERT            : Mail for status alert %s",
     "\nEM_ALERT (REPLY)    : Mail for status alert %s"},
    {0x1A4D, Load::First, &AlertSettings::ConfUpdAlertNewUpdates, "\nEM_ALERT            : ConfUpdAlertNewUpdates %s",
     "\nEM_ALERT (REPLY)    : ConfUpdAlertNewUpdates %s"},
    {0x1A4E, Load::First, &AlertSettings::ConfUpdAlertJobFinished, "\nEM_ALERT            : ConfUpdAlertJobFinished %s",
     "\nEM_ALERT (REPLY)    : ConfUpdAlertJobFinished %s"},
    {0x0411, Load::AfterMailServers, &AlertSettings::mailAlertSeverity,
     "\nEM_ALERT            : Mail alert severity: %d",
     "\nEM_ALERT (REPLY)    : Mail alert severity changed from %d to %d"},
    {0x0418, Load::AfterMailServers, Row::Byte(&AlertSettings::importance),
     "\nEM_ALERT            : Mail alert importance: %d",
     "\nEM_ALERT (REPLY)    : Mail alert importance changed from %d to %d"},
    {0x0416, Load::AfterMailServers, Row::Text(&AlertSettings::alertSubject),
     "\nEM_ALERT            : Mail alert subject: %s", "\nEM_ALERT (REPLY)    : Mail alert subject changed to \"%s\""},
    {0x0417, Load::AfterMailServers, Row::Text(&AlertSettings::alertMessage),
     "\nEM_ALERT            : Mail alert message: %s", "\nEM_ALERT (REPLY)    : Mail alert message changed to \"%s\""},
    {0x041A, Load::AfterMailServers, Row::Text(&AlertSettings::updateSubject),
     "\nEM_ALERT            : Mail alert update status subject: %s",
     "\nEM_ALERT (REPLY)    : Mail alert update status subject changed to \"%s\""},
    {0x041B, Load::AfterMailServers, Row::Text(&AlertSettings::updateMessage),
     "\nEM_ALERT            : Mail alert update status message: %s",
     "\nEM_ALERT (REPLY)    : Mail alert update status message changed to \"%s\""},
    {0x0420, Load::AfterMailServers, Row::Word(&AlertSettings::language),
     "\nEM_ALERT            : Mail alert param language: %d",
     "\nEM_ALERT (REPLY)    : Mail alert param language changed from %d to %d"},
    {0x0401, Load::Never, &AlertSettings::beepWarningSequence, nullptr, nullptr},
    {0x0402, Load::Never, &AlertSettings::beepErrorSequence, nullptr, nullptr},
    {0x0421, Load::Never, Row::TraceOnly(), nullptr,
     "\nEM_ALERT (REPLY)    : Mail alert param string [%d] \"StatusOk\" changed to \"%s\""},
    {0x0422, Load::Never, Row::TraceOnly(), nullptr,
     "\nEM_ALERT (REPLY)    : Mail alert param string [%d] \"StatusWarning\" changed to \"%s\""},
    {0x0423, Load::Never, Row::TraceOnly(), nullptr,
     "\nEM_ALERT (REPLY)    : Mail alert param string [%d] \"StatusError\" changed to \"%s\""},
    {0x0424, Load::Never, Row::TraceOnly(), nullptr,
     "\nEM_ALERT (REPLY)    : Mail alert param string [%d] \"DateFormat\" changed to \"%s\""},
    {0x0425, Load::Never, Row::TraceOnly(), nullptr,
     "\nEM_ALERT (REPLY)    : Mail alert param string [%d] \"TimeFormat\" changed to \"%s\""},
};

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

bool SettingRow::Take(const SipJson& message, SettingValue& value) const {
    const int command = message.GetCmdIndex();
    if (!IsSwitch() && !IsNumber()) {
        return message.GetCmdDataString(command, value.text, SipJson::kNoLimit);
    }
    unsigned int number = 0;
    if (!message.GetCmdUIntData(command, number)) {
        return false;
    }
    if (IsSwitch()) {
        value.number = (number & 0xFF) == 1 ? 1 : 0;
    } else {
        value.number = number & (std::holds_alternative<Byte>(field) ? 0xFF : 0xFFFF);
    }
    return true;
}

void SettingRow::Store(AlertSettings& settings, const SettingValue& value) const {
    if (const auto* onOff = std::get_if<Switch>(&field)) {
        settings.** onOff = value.number != 0;
    } else if (const auto* byte = std::get_if<Byte>(&field)) {
        settings.** byte = static_cast<std::uint8_t>(value.number);
    } else if (const auto* word = std::get_if<Word>(&field)) {
        settings.** word = static_cast<std::uint16_t>(value.number);
    } else if (const auto* text = std::get_if<Text>(&field)) {
        settings.** text = value.text;
    }
}

unsigned int SettingRow::Number(const AlertSettings& settings) const {
    if (const auto* byte = std::get_if<Byte>(&field)) {
        return settings.**byte;
    }
    const auto* word = std::get_if<Word>(&field);
    return word == nullptr ? 0 : settings.**word;
}

std::span<const SettingRow> SettingTable() {
    return kSettingTable;
}
