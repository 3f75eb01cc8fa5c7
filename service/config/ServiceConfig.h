// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Whether a component may be called so. Names stand in lists, labels and lines of the state, and on terminals.
bool IsComponentName(std::string_view name);
constexpr const char* kComponentNameRule =
    R"(is one line of 200 bytes at most, such as "root", without "/", "|", control characters and blanks around it)";

/// One component that the service watches.
struct CheckConfig {
    std::string name;
    std::string designation;
    std::vector<std::string> command;  ///< run without a shell; empty: others report this component
    std::chrono::milliseconds interval{60000};
    std::chrono::milliseconds timeout{10000};
    std::chrono::milliseconds retry{10000};  ///< the interval between bad results that are not told yet
    std::chrono::milliseconds freshness{0};  ///< a report is due within this time; 0: whenever
    std::uint32_t attempts = 1;              ///< bad results in a row until it is told
    std::uint32_t unknownIs = 2;             ///< the status, 1 to 3, that "unknown" counts as
    bool isUpdate = false;  ///< tells of updates: their number, when it changes, is an event of its own
};

/// A setting of the module, as the agent answers it.
struct AlertSettingValue {
    std::uint32_t id;  ///< the configuration value
    std::string data;  ///< "DA" of the answer
};

/// What stands in em-alertd.toml.
struct ServiceConfig {
    std::vector<AlertSettingValue> alerts;
    std::vector<CheckConfig> checks;
    std::vector<std::string> leftOut;        ///< checks whose program is not installed, and need not be
    std::chrono::milliseconds reminder{0};   ///< a pending component is told again after this time; 0: never
    std::uint32_t parallel = 8;              ///< checks that run side by side at most
    std::vector<std::string> alertmanagers;  ///< base addresses, such as http://localhost:9093
    std::string metricsFile;                 ///< empty: none
};

/// A mistake in the file: "FILE:LINE: what is wrong and what was expected". Line 0: the file as a whole.
struct ConfigMistake {
    std::uint32_t line;
    std::string text;
};

constexpr const char* kServiceConfigFile = "/etc/em-alert/em-alertd.toml";

/// Reads a configuration. Nothing is used of one with mistakes.
/// @param mistakes  gets all of them, in the order of their lines
/// @return false when there are any
bool ReadServiceConfig(const std::string& path, ServiceConfig& config, std::vector<ConfigMistake>& mistakes);

/// How many checks there are, and which are left out, as a person reads it.
std::string ChecksText(const ServiceConfig& config);

/// As a person reads it.
std::string MistakeText(const std::string& path, const ConfigMistake& mistake);
