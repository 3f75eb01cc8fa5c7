#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "mail/MailSettings.h"
#include "platform/Mutex.h"

class SipJson;

/// The alert settings: a plain value. Whoever works with it takes one snapshot and never mixes two.
struct AlertSettings : MailTemplates {
    bool beepAlertEnabled = false;
    bool mailForStatusAlertEnabled = false;
    bool ConfUpdAlertNewUpdates = false;   ///< mail when new updates are available
    bool ConfUpdAlertJobFinished = false;  ///< mail when an update job has run
    std::uint8_t mailAlertSeverity = 0;    ///< least component status that makes a mail
    std::vector<unsigned char> beepWarningSequence;
    std::vector<unsigned char> beepErrorSequence;

    /// Everything off, the default beep sequences.
    AlertSettings();
};

/// Keeps the settings for all threads: readers get a snapshot for the price of a reference count, a change makes a new
/// value. Any thread.
class CAlertSettingsStore {
public:
    std::shared_ptr<const AlertSettings> Get() const;
    void Change(const std::function<void(AlertSettings&)>& change);

private:
    mutable CMutex lock_;
    std::shared_ptr<const AlertSettings> current_ EM_GUARDED_BY(lock_) = std::make_shared<AlertSettings>();
};

/// A value on its way from a message's data to its field.
struct SettingValue {
    unsigned int number = 0;  ///< already narrowed to the field's width
    std::string text;
};

/// One configuration value of the agent: where it goes, and what is traced when it is loaded at the start and when a
/// notice changes it at run time.
struct SettingRow {
    enum class Load { First, AfterMailServers, Never };

    // How the value is taken from a message's data, and the field that holds it. A switch is on exactly when the low
    // byte is 1; numbers are their low 8 or 16 bits.
    using Switch = bool AlertSettings::*;
    using Byte = std::uint8_t AlertSettings::*;
    using Word = std::uint16_t AlertSettings::*;
    using Text = std::string AlertSettings::*;
    using Sequence = std::vector<unsigned char> AlertSettings::*;  // has rules of its own, see ConfigurationReplies.cpp
    struct TraceOnly {};  // a text that the mail texts ask for themselves when a mail is composed

    unsigned int id;
    Load load;
    std::variant<Switch, Byte, Word, Text, Sequence, TraceOnly> field;
    const char* loadTrace;    ///< one argument: "enabled" or "disabled", the number, or the text
    const char* noticeTrace;  ///< the same, but numbers have two (old, new), and TraceOnly (object id, text)

    bool IsSwitch() const { return std::holds_alternative<Switch>(field); }
    bool IsNumber() const { return std::holds_alternative<Byte>(field) || std::holds_alternative<Word>(field); }

    /// Takes the value from the data of the message's current command.
    /// @return false when the data does not hold it
    bool Take(const SipJson& message, SettingValue& value) const;
    void Store(AlertSettings& settings, const SettingValue& value) const;

    /// The number that the field holds now; 0 for a field that holds none.
    unsigned int Number(const AlertSettings& settings) const;
};

constexpr unsigned int kBeepAlertSetting = 0x0400;

/// All values that the module follows, in the order in which they are loaded.
std::span<const SettingRow> SettingTable();
