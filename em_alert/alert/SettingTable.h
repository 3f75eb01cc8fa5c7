// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <span>

#include "em_alert/values/AlertSettings.h"
#include "sip/Vocabulary.h"

class CAlertBeeper;
class SipJson;

/// Whom a setting reaches when it is loaded or changed.
struct SettingTargets {
    CAlertSettingsStore& settings;
    CAlertBeeper& beeper;
};

/// One configuration value of the agent that the module follows: how it is taken from the data of a message's current
/// command, stored and traced. Data that does not hold the value changes nothing.
struct SettingRow {
    enum class Load { First, AfterMailServers, Never };
    using Take = void (*)(const SettingRow& row, const SettingTargets& targets, const SipJson& message);

    ConfigurationValue id;
    Load load;
    Take takeLoaded;  ///< the agent's answer at the start; null for a value that is never asked for
    Take takeNotice;  ///< a change at run time

    // One argument: "enabled" or "disabled", the number, or the text. In a notice numbers have two (old, new), and what
    // is traced only has the object id before the text.
    const char* loadTrace;
    const char* noticeTrace;
};

/// All values, in the order in which they are loaded.
std::span<const SettingRow> SettingTable();

/// Applies the notice of a configuration value that was written anywhere in the agent; leaves alone what is none of the
/// module's.
void FollowSetting(const SettingTargets& targets, const SipJson& notice);
