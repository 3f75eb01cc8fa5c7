// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "testing/TempDirectory.h"

/// The fields, between tabs, of the lines of a data file but those that are empty or begin with "#". "\xNN" stands for
/// a byte, and "@NAME" for the text of a file beside that one.
inline std::vector<std::vector<std::string>> DataRows(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream fields(line + '\t');
        rows.emplace_back();
        for (std::string field; std::getline(fields, field, '\t'); rows.back().push_back(field)) {
            for (std::size_t at = 0; (at = field.find("\\x", at)) != std::string::npos; ++at) {
                field.replace(at, 4, 1, static_cast<char>(std::stoi(field.substr(at + 2, 2), nullptr, 16)));
            }
            field = field.starts_with('@') ? ReadFile(path.substr(0, path.rfind('/') + 1) + field.substr(1)) : field;
        }
    }
    EXPECT_FALSE(rows.empty()) << path;
    return rows;
}
