// SPDX-License-Identifier: Apache-2.0
#include "em_alert/alert/SettingTable.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "em_alert/alert/AlertBeeper.h"
#include "em_alert/alert/SettingTrace.h"
#include "sip/SipJson.h"

namespace {

using Row = SettingRow;
using Load = SettingRow::Load;
using Targets = SettingTargets;

// How a value is taken from a message: a switch is on exactly when the low byte is 1, numbers are the low bits that
// their field has.

std::optional<unsigned int> TakeNumber(const SipJson& message) {
    unsigned int number{};
    return message.GetCmdUIntData(message.GetCmdIndex(), number) ? std::optional(number) : std::nullopt;
}

std::optional<bool> TakeSwitch(const SipJson& message) {
    const auto number = TakeNumber(message);
    return number ? std::optional((*number & 0xFF) == 1) : std::nullopt;
}

std::optional<std::string> TakeText(const SipJson& message) {
    std::string text;
    return message.GetCmdDataString(message.GetCmdIndex(), text, SipJson::kNoLimit) ? std::optional(std::move(text))
                                                                                    : std::nullopt;
}

/// The bytes of a sequence. Texts, a lone number and a boolean are none, though each could be read as bytes:
/// "abcdefghijk" would be a tone of an hour.
std::vector<unsigned char> TakeSequence(const SipJson& notice) {
    const int command = notice.GetCmdIndex();
    const auto type = notice.GetCmdDataType(command);
    std::vector<unsigned char> bytes;
    const auto isNumberList = [&] {
        const auto& list = notice.GetDocument()["SIP"]["CMD"][static_cast<rapidjson::SizeType>(command)]["DA"];
        return !list.Empty() && list.Begin()->IsNumber();
    };
    if (type == rapidjson::kObjectType || (type == rapidjson::kArrayType && isNumberList())) {
        notice.GetCmdDataStream(command, bytes);
    }
    return bytes;
}

const char* OnOff(bool on) {
    return on ? "enabled" : "disabled";
}

template <auto field>
void StoreSwitch(const char* trace, const Targets& targets, const SipJson& message) {
    if (const auto on = TakeSwitch(message)) {
        targets.settings.Change([&](AlertSettings& settings) { settings.*field = *on; });
        TraceSetting(trace, OnOff(*on));
    }
}

template <auto field>
void LoadSwitch(const Row& row, const Targets& targets, const SipJson& message) {
    StoreSwitch<field>(row.loadTrace, targets, message);
}

template <auto field>
void FollowSwitch(const Row& row, const Targets& targets, const SipJson& message) {
    StoreSwitch<field>(row.noticeTrace, targets, message);
}

void FollowBeepSwitch(const Row& row, const Targets& targets, const SipJson& message) {
    if (const auto on = TakeSwitch(message)) {
        targets.beeper.FollowSwitch(*on);
        TraceSetting(row.noticeTrace, OnOff(*on));
    }
}

/// @return the old number and the new one, nothing when the message holds none
template <auto field>
std::optional<std::pair<unsigned int, unsigned int>> StoreNumber(const Targets& targets, const SipJson& message) {
    const auto number = TakeNumber(message);
    if (!number) {
        return std::nullopt;
    }
    std::pair<unsigned int, unsigned int> change;
    targets.settings.Change([&](AlertSettings& settings) {
        change.first = settings.*field;
        settings.*field = static_cast<std::remove_reference_t<decltype(settings.*field)>>(*number);
        change.second = settings.*field;
    });
    return change;
}

template <auto field>
void LoadNumber(const Row& row, const Targets& targets, const SipJson& message) {
    if (const auto change = StoreNumber<field>(targets, message)) {
        TraceSetting(row.loadTrace, change->second);
    }
}

template <auto field>
void FollowNumber(const Row& row, const Targets& targets, const SipJson& message) {
    if (const auto change = StoreNumber<field>(targets, message)) {
        TraceSetting(row.noticeTrace, change->first, change->second);
    }
}

template <auto field>
void StoreText(const char* trace, const Targets& targets, const SipJson& message) {
    if (const auto text = TakeText(message)) {
        targets.settings.Change([&](AlertSettings& settings) { settings.*field = *text; });
        TraceSetting(trace, text->c_str());
    }
}

template <auto field>
void LoadText(const Row& row, const Targets& targets, const SipJson& message) {
    StoreText<field>(row.loadTrace, targets, message);
}

template <auto field>
void FollowText(const Row& row, const Targets& targets, const SipJson& message) {
    StoreText<field>(row.noticeTrace, targets, message);
}

/// For a text that the mail texts ask for themselves when a mail is composed.
void TraceText(const Row& row, const Targets& /*targets*/, const SipJson& message) {
    if (const auto text = TakeText(message)) {
        TraceSetting(row.noticeTrace, message.GetElem("OI"), text->c_str());
    }
}

template <auto field>
void FollowSequence(const Row& /*row*/, const Targets& targets, const SipJson& notice) {
    constexpr std::size_t kLongestRefused = 8;  // bytes
    constexpr bool kIsWarning = field == &AlertSettings::beepWarningSequence;
    std::vector<unsigned char> sequence = TakeSequence(notice);
    if (sequence.size() > kLongestRefused) {
        targets.settings.Change([&](AlertSettings& settings) { settings.*field = std::move(sequence); });
    } else if (!sequence.empty()) {
        TraceSetting<1>(kIsWarning
                            ? "\nEM_ALERT (REPLY)    : ERROR! Size of beep warning sequence is lower than %d bytes!"
                            : "\nEM_ALERT (REPLY)    : ERROR! Size of beep error sequence is lower than %d bytes!",
                        static_cast<int>(kLongestRefused));
    } else {
        TraceSetting<1>(kIsWarning ? "\nEM_ALERT (REPLY)    : ERROR! Invalid size (0) of beep warning sequence!"
                                   : "\nEM_ALERT (REPLY)    : ERROR! Invalid size (0) of beep error sequence!");
    }
}

template <auto field>
constexpr Row SwitchRow(ConfigurationValue id, const char* loadTrace, const char* noticeTrace) {
    return {id, Load::First, LoadSwitch<field>, FollowSwitch<field>, loadTrace, noticeTrace};
}

template <auto field>
constexpr Row NumberRow(ConfigurationValue id, const char* loadTrace, const char* noticeTrace) {
    return {id, Load::AfterMailServers, LoadNumber<field>, FollowNumber<field>, loadTrace, noticeTrace};
}

template <auto field>
constexpr Row TextRow(ConfigurationValue id, const char* loadTrace, const char* noticeTrace) {
    return {id, Load::AfterMailServers, LoadText<field>, FollowText<field>, loadTrace, noticeTrace};
}

template <auto field>
constexpr Row SequenceRow(ConfigurationValue id) {
    return {id, Load::Never, nullptr, FollowSequence<field>, nullptr, nullptr};
}

constexpr Row TracedRow(ConfigurationValue id, const char* noticeTrace) {
    return {id, Load::Never, nullptr, TraceText, nullptr, noticeTrace};
}

constexpr Row kSettingTable[] = {
    {kBeepAlert, Load::First, LoadSwitch<&AlertSettings::beepAlertEnabled>, FollowBeepSwitch,
     "\nEM_ALERT            : Beep alert %s", "\nEM_ALERT (REPLY)    : Beep alert %s"},
    SwitchRow<&AlertSettings::mailForStatusAlertEnabled>(kMailForStatusAlert,
                                                         "\nEM_ALERT            : Mail for status alert %s",
                                                         "\nEM_ALERT (REPLY)    : Mail for status alert %s"),
    SwitchRow<&AlertSettings::ConfUpdAlertNewUpdates>(kConfUpdAlertNewUpdates,
                                                      "\nEM_ALERT            : ConfUpdAlertNewUpdates %s",
                                                      "\nEM_ALERT (REPLY)    : ConfUpdAlertNewUpdates %s"),
    SwitchRow<&AlertSettings::ConfUpdAlertJobFinished>(kConfUpdAlertJobFinished,
                                                       "\nEM_ALERT            : ConfUpdAlertJobFinished %s",
                                                       "\nEM_ALERT (REPLY)    : ConfUpdAlertJobFinished %s"),
    NumberRow<&AlertSettings::mailAlertSeverity>(kMailAlertSeverity, "\nEM_ALERT            : Mail alert severity: %d",
                                                 "\nEM_ALERT (REPLY)    : Mail alert severity changed from %d to %d"),
    NumberRow<&AlertSettings::importance>(kMailAlertImportance, "\nEM_ALERT            : Mail alert importance: %d",
                                          "\nEM_ALERT (REPLY)    : Mail alert importance changed from %d to %d"),
    TextRow<&AlertSettings::alertSubject>(kMailAlertSubject, "\nEM_ALERT            : Mail alert subject: %s",
                                          "\nEM_ALERT (REPLY)    : Mail alert subject changed to \"%s\""),
    TextRow<&AlertSettings::alertMessage>(kMailAlertMessage, "\nEM_ALERT            : Mail alert message: %s",
                                          "\nEM_ALERT (REPLY)    : Mail alert message changed to \"%s\""),
    TextRow<&AlertSettings::updateSubject>(
        kUpdateStatusSubject, "\nEM_ALERT            : Mail alert update status subject: %s",
        "\nEM_ALERT (REPLY)    : Mail alert update status subject changed to \"%s\""),
    TextRow<&AlertSettings::updateMessage>(
        kUpdateStatusMessage, "\nEM_ALERT            : Mail alert update status message: %s",
        "\nEM_ALERT (REPLY)    : Mail alert update status message changed to \"%s\""),
    NumberRow<&AlertSettings::language>(kMailLanguage, "\nEM_ALERT            : Mail alert param language: %d",
                                        "\nEM_ALERT (REPLY)    : Mail alert param language changed from %d to %d"),
    SequenceRow<&AlertSettings::beepWarningSequence>(kBeepWarningSequence),
    SequenceRow<&AlertSettings::beepErrorSequence>(kBeepErrorSequence),
    TracedRow(kStringStatusOk, "\nEM_ALERT (REPLY)    : Mail alert param string [%d] \"StatusOk\" changed to \"%s\""),
    TracedRow(kStringStatusWarning,
              "\nEM_ALERT (REPLY)    : Mail alert param string [%d] \"StatusWarning\" changed to \"%s\""),
    TracedRow(kStringStatusError,
              "\nEM_ALERT (REPLY)    : Mail alert param string [%d] \"StatusError\" changed to \"%s\""),
    TracedRow(kStringDateFormat,
              "\nEM_ALERT (REPLY)    : Mail alert param string [%d] \"DateFormat\" changed to \"%s\""),
    TracedRow(kStringTimeFormat,
              "\nEM_ALERT (REPLY)    : Mail alert param string [%d] \"TimeFormat\" changed to \"%s\""),
};

}  // namespace

std::span<const SettingRow> SettingTable() {
    return kSettingTable;
}

void FollowSetting(const SettingTargets& targets, const SipJson& notice) {
    const unsigned int id = notice.GetElem("OE");
    if (const auto* row = std::ranges::find(kSettingTable, id, &SettingRow::id); row != std::end(kSettingTable)) {
        row->takeNotice(*row, targets, notice);
    }
}
