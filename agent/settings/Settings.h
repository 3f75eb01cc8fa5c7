// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sip/Vocabulary.h"

/// A setting as the operator sees it: a name, and how its value is written.
struct OperatorSetting {
    enum class Kind {
        Text,
        Lines,  // a text in which \n stands for a line break
        Secret,
        Number,
        Switch,
        LogIn,
        Tones,
    };

    std::string_view name;
    std::uint32_t id;  // the configuration value
    Kind kind;
    std::string_view meaning;
    std::uint32_t lowest = 0;  // of a number
    std::uint32_t highest = 0;
    bool isReadOnly = false;
    std::string_view fallback = {};  // what the module goes by where nobody tells it a value; empty: none is its own

    bool IsPerServer() const { return FindConfigurationValue(id)->isPerServer; }
};

/// The settings in the notification file, which the module keeps.
std::span<const OperatorSetting> MailServerSettings();

/// The settings that the agent keeps and the module follows.
std::span<const OperatorSetting> AlertSettings();

/// @throw CUsageError that lists the names
const OperatorSetting& FindSetting(std::span<const OperatorSetting> settings, std::string_view name);

/// Reads a number that a person wrote, decimal or "0x" hexadecimal. Another leading "0" is refused: it would make the
/// number octal, as in messages, and nobody would notice.
std::optional<std::uint32_t> ParseWrittenNumber(std::string_view text);

/// @param words  the value; the words of a text are joined by blanks
/// @return the value as "DA" of a message
/// @throw CUsageError that tells what is right
std::string SettingData(const OperatorSetting& setting, std::span<const std::string> words);

/// @return the fallback as "DA" of a message, empty where there is none
std::string FallbackData(const OperatorSetting& setting);

/// @param data  "DA" of a message
/// @return what the operator reads; secrets are hidden
std::string ShowSetting(const OperatorSetting& setting, std::string_view data);

/// @return the values that can be listed, for completion
std::vector<std::string> SettingValues(const OperatorSetting& setting);
