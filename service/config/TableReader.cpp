// SPDX-License-Identifier: Apache-2.0
#include "service/config/TableReader.h"

#include "service/config/Duration.h"

const toml::node* CTableReader::Take(const char* key) {
    known_.insert(key);
    return table_.get(key);
}

void CTableReader::Mistake(const toml::node& node, const std::string& what) {
    mistakes_.push_back({.line = node.source().begin.line, .text = where_ + what});
}

void CTableReader::Text(const char* key, std::string& target) {
    const toml::node* const node = Take(key);
    if (node == nullptr) {
        return;
    }
    if (const auto text = node->value<std::string>(); text && node->is_string()) {
        target = *text;
    } else {
        Mistake(*node, std::string(key) + " is a text in quotes");
    }
}

void CTableReader::Texts(const char* key, std::vector<std::string>& target) {
    const toml::node* node = Take(key);
    if (node == nullptr) {
        return;
    }
    target.clear();
    if (const toml::array* list = node->as_array(); list != nullptr) {
        for (const toml::node& item : *list) {
            const auto text = item.is_string() ? item.value<std::string>() : std::nullopt;
            if (text && text->find('\0') == std::string::npos) {
                target.push_back(*text);
            }
        }
        if (target.size() == list->size()) {
            return;
        }
    }
    Mistake(*node, std::string(key) + R"( is a list of texts without zero bytes, such as ["first", "second"])");
}

void CTableReader::Number(const char* key, std::uint32_t lowest, std::uint32_t highest, std::uint32_t& target) {
    const toml::node* node = Take(key);
    if (node == nullptr) {
        return;
    }
    const auto number = node->is_integer() ? node->value<std::int64_t>() : std::nullopt;
    if (number && *number >= lowest && *number <= highest) {
        target = static_cast<std::uint32_t>(*number);
    } else {
        Mistake(*node, std::string(key) + " is a whole number from " + std::to_string(lowest) + " to " +
                           std::to_string(highest));
    }
}

void CTableReader::Flag(const char* key, bool& target) {
    const toml::node* node = Take(key);
    if (node != nullptr && node->is_boolean()) {
        target = *node->value<bool>();
    } else if (node != nullptr) {
        Mistake(*node, std::string(key) + " is true or false");
    }
}

void CTableReader::Duration(const char* key, std::chrono::milliseconds& target) {
    const toml::node* node = Take(key);
    if (node == nullptr) {
        return;
    }
    const auto time = node->is_string() ? ParseDuration(*node->value<std::string>()) : std::nullopt;
    if (time && time->count() > 0) {
        target = *time;
    } else {
        Mistake(*node, std::string(key) +
                           R"( is a time with its unit in quotes, such as "10s" or "24h", from "1ms" to "366d")");
    }
}

const toml::table* CTableReader::Table(const char* key) {
    const toml::node* node = Take(key);
    if (node != nullptr && !node->is_table()) {
        Mistake(*node, "[" + std::string(key) + "] is a table");
    }
    return node != nullptr ? node->as_table() : nullptr;
}

void CTableReader::RefuseOthers() {
    for (const auto& [key, node] : table_) {
        if (known_.contains(key.str())) {
            continue;
        }
        std::string names;
        for (const std::string& name : known_) {
            names += (names.empty() ? "" : ", ") + name;
        }
        mistakes_.push_back(
            {.line = key.source().begin.line,
             .text = where_ + "the key " + std::string(key.str()) + " is not known; here may stand " + names});
    }
}
