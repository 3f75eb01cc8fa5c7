// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <toml++/toml.h>
#include <vector>

#include "service/config/ServiceConfig.h"

/// Reads the keys of one table of the configuration, and notes each mistake with its line. What is absent leaves the
/// target as it is.
class CTableReader {
public:
    CTableReader(const toml::table& table, std::string where, std::vector<ConfigMistake>& mistakes)
        : table_(table), where_(std::move(where)), mistakes_(mistakes) {}

    void Text(const char* key, std::string& target);
    void Texts(const char* key, std::vector<std::string>& target);
    void Number(const char* key, std::uint32_t lowest, std::uint32_t highest, std::uint32_t& target);
    void Flag(const char* key, bool& target);
    void Duration(const char* key, std::chrono::milliseconds& target);

    /// @return the value, null when absent; the caller reads it
    const toml::node* Take(const char* key);

    /// @return the table, null when absent or no table
    const toml::table* Table(const char* key);

    void Mistake(const toml::node& node, const std::string& what);

    /// To be called last: every key that nobody has asked for is a mistake.
    void RefuseOthers();

private:
    const toml::table& table_;
    const std::string where_;
    std::vector<ConfigMistake>& mistakes_;
    std::set<std::string, std::less<>> known_;
};
