// SPDX-License-Identifier: Apache-2.0
#include "service/config/ServiceConfig.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <span>
#include <sstream>
#include <system_error>
#include <unistd.h>

#include <curl/curl.h>

#include "agent/core/Files.h"
#include "agent/core/Json.h"
#include "agent/settings/Settings.h"
#include "service/config/Printable.h"
#include "service/config/TableReader.h"

namespace {

using Mistakes = std::vector<ConfigMistake>;

constexpr std::size_t kLongestName = 200;

// The words in which the operator's command would take the value.
std::vector<std::string> ValueWords(const toml::node& node, OperatorSetting::Kind kind) {
    if (const auto flag = node.value<bool>(); flag && node.is_boolean()) {
        return {*flag ? "on" : "off"};
    }
    std::string text = node.is_integer() ? std::to_string(*node.value<std::int64_t>()) : node.value_or(std::string());
    if (kind == OperatorSetting::Kind::Lines) {
        for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; ++at) {
            text.replace(at, 1, "\\n");
        }
    }
    if (kind != OperatorSetting::Kind::Tones) {
        return {text};
    }
    std::vector<std::string> words(1);
    for (const char c : text) {
        c == ' ' ? words.emplace_back() : words.back() += c;
    }
    return words;
}

void ReadAlerts(const toml::table* table, ServiceConfig& config, Mistakes& mistakes) {
    if (table == nullptr) {
        return;
    }
    CTableReader reader(*table, "[alerts] ", mistakes);
    for (const OperatorSetting& setting : AlertSettings()) {
        const toml::node* node = reader.Take(std::string(setting.name).c_str());
        if (node == nullptr) {
            continue;
        }
        try {
            const bool fits = setting.kind == OperatorSetting::Kind::Switch   ? node->is_boolean()
                              : setting.kind == OperatorSetting::Kind::Number ? node->is_integer()
                                                                              : node->is_string();
            if (!fits) {
                throw CAgentError(setting.kind == OperatorSetting::Kind::Switch   ? "is true or false"
                                  : setting.kind == OperatorSetting::Kind::Number ? "is a whole number"
                                                                                  : "is a text in quotes");
            }
            config.alerts.push_back({.id = setting.id, .data = SettingData(setting, ValueWords(*node, setting.kind))});
        } catch (const CAgentError& error) {
            const std::string name = std::string(setting.name) + " ";
            const std::string words = error.what();
            reader.Mistake(*node, words.starts_with(name) ? words : name + words);
        }
    }
    reader.Duration("reminder", config.reminder);
    reader.RefuseOthers();
}

bool IsProgram(const std::string& path) {
    std::error_code ignored;
    return ::access(path.c_str(), X_OK) == 0 && !std::filesystem::is_directory(path, ignored);
}

bool CanBeFile(const std::string& path) {
    std::error_code ignored;
    return path.starts_with('/') && !path.ends_with('/') && path.find('\0') == std::string::npos &&
           !std::filesystem::is_directory(path, ignored);
}

// Looks where running it would look.
bool CanRun(const std::string& program) {
    if (program.find('/') != std::string::npos) {
        return IsProgram(program);
    }
    const char* const path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe): nobody changes it
    std::istringstream folders(path != nullptr ? path : "/bin:/usr/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (IsProgram((folder.empty() ? "." : folder) + "/" + program)) {
            return true;
        }
    }
    return false;
}

bool IsBaseAddress(const std::string& url) {
    const std::unique_ptr<CURLU, decltype(&::curl_url_cleanup)> parsed(::curl_url(), ::curl_url_cleanup);
    return (url.starts_with("http://") || url.starts_with("https://")) &&
           url.find_first_of("?#") == std::string::npos &&
           ::curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
}

void ReadUrls(CTableReader& reader, const toml::table& table, std::vector<std::string>& urls) {
    reader.Texts("urls", urls);
    for (const std::string& url : urls) {
        if (!IsBaseAddress(url)) {
            reader.Mistake(*table.get("urls"), "\"" + url + R"(" is no base address such as "http://localhost:9093")");
        }
    }
}

void ReadCheck(const toml::table& table, ServiceConfig& config, Mistakes& mistakes) {
    CheckConfig check;
    CTableReader reader(table, "[[check]] ", mistakes);
    reader.Text("name", check.name);
    reader.Text("designation", check.designation);
    reader.Texts("command", check.command);
    reader.Duration("interval", check.interval);
    reader.Duration("timeout", check.timeout);
    reader.Duration("retry", check.retry);
    reader.Duration("freshness", check.freshness);
    reader.Number("attempts", 1, 100, check.attempts);
    reader.Number("unknown", 1, 3, check.unknownIs);
    std::string kind = "status";
    reader.Text("kind", kind);
    check.isUpdate = kind == "update";
    if (kind != "status" && kind != "update") {
        reader.Mistake(*table.get("kind"), R"(kind is "status" or "update")");
    }
    bool isLeftOut = false;  // without its program, rather than wrong
    reader.Flag("if-installed", isLeftOut);
    reader.RefuseOthers();
    const bool isNamed = IsComponentName(check.name);
    if (!isNamed) {
        const toml::node* const name = table.get("name");
        reader.Mistake(name != nullptr ? *name : table, std::string("name ") + kComponentNameRule);
    }
    if (Printable(check.designation, kLongestName) != check.designation) {
        reader.Mistake(*table.get("designation"), "designation is one line of " + std::to_string(kLongestName) +
                                                      " bytes at most, without control characters");
    }
    if (isNamed && std::ranges::find(config.checks, check.name, &CheckConfig::name) != config.checks.end()) {
        reader.Mistake(table, "the name " + check.name + " is taken by a check before this one");
    }
    if (table.contains("command") && table.contains("freshness")) {
        reader.Mistake(*table.get("freshness"),
                       "freshness is for what others report; a check with a command has interval");
    }
    if (table["command"].is_array() && (check.command.empty() || check.command.front().empty())) {
        reader.Mistake(*table.get("command"),
                       "command begins with a program; without the whole key, others report the component");
    }
    const bool isMissing = !check.command.empty() && !CanRun(check.command.front());
    if (isMissing && isLeftOut) {
        config.leftOut.push_back(check.name);
        return;
    }
    if (isMissing) {
        reader.Mistake(*table.get("command"), "there is no program " + check.command.front() + " that could be run");
    }
    if (check.designation.empty()) {
        check.designation = check.name;
    }
    config.checks.push_back(std::move(check));
}

void ReadChecks(CTableReader& root, ServiceConfig& config, Mistakes& mistakes) {
    const toml::node* node = root.Take("check");
    if (node == nullptr) {
        return;
    }
    if (!node->is_array_of_tables()) {
        root.Mistake(*node, "each check stands in a table of its own, under [[check]]");
        return;
    }
    for (const toml::node& check : *node->as_array()) {
        ReadCheck(*check.as_table(), config, mistakes);
    }
}

void ReadRoot(const toml::table& table, ServiceConfig& config, Mistakes& mistakes) {
    CTableReader root(table, "", mistakes);
    ReadAlerts(root.Table("alerts"), config, mistakes);
    ReadChecks(root, config, mistakes);
    root.Number("parallel", 1, 1000, config.parallel);
    if (const toml::table* fleet = root.Table("alertmanager")) {
        CTableReader reader(*fleet, "[alertmanager] ", mistakes);
        ReadUrls(reader, *fleet, config.alertmanagers);
        reader.RefuseOthers();
    }
    if (const toml::table* metrics = root.Table("metrics")) {
        CTableReader reader(*metrics, "[metrics] ", mistakes);
        reader.Text("textfile", config.metricsFile);
        if (!config.metricsFile.empty() && !CanBeFile(config.metricsFile)) {
            reader.Mistake(*metrics->get("textfile"), "textfile is the whole path of a file, from \"/\" on");
        }
        reader.RefuseOthers();
    }
    root.RefuseOthers();
}

}  // namespace

bool IsComponentName(std::string_view name) {
    return !name.empty() && Printable(name, kLongestName) == name &&
           name.find_first_of("/|") == std::string_view::npos && name.front() != ' ' && name.back() != ' ';
}

bool ReadServiceConfig(const std::string& path, ServiceConfig& config, std::vector<ConfigMistake>& mistakes) {
    try {
        ReadRoot(toml::parse(ReadWholeFile(path), path), config, mistakes);
    } catch (const toml::parse_error& error) {
        mistakes.push_back({.line = error.source().begin.line, .text = std::string(error.description())});
    } catch (const CAgentError& error) {
        mistakes.push_back({.line = 0, .text = error.what()});
    }
    std::ranges::stable_sort(mistakes, {}, &ConfigMistake::line);
    return mistakes.empty();
}

std::string ChecksText(const ServiceConfig& config) {
    const std::size_t count = config.checks.size();
    std::string text = count == 1 ? "one check" : std::to_string(count) + " checks";
    for (const std::string& name : config.leftOut) {
        text += (&name == config.leftOut.data() ? "; left out, as the program is not installed: " : ", ") + name;
    }
    return text;
}

std::string MistakeText(const std::string& path, const ConfigMistake& mistake) {
    return mistake.line == 0 ? mistake.text : path + ":" + std::to_string(mistake.line) + ": " + mistake.text;
}
