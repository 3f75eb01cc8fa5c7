// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstring>

#include "support/DataRows.h"

inline unsigned int Number(const std::string& text, int base = 10) {
    return static_cast<unsigned int>(std::stoul(text, nullptr, base));
}

/// The rows of a data file beside the tests that are behind the name of a test: the name and the fields between tabs,
/// with \n \r \t \v \f \\ as in C and \xNN for any byte. Other rows, such as "# ...", tell people what the fields are.
inline std::vector<std::vector<std::string>> Cases(const std::string& file, const std::string& test) {
    auto rows = DataRows(EM_TEST_DATA "/" + file);
    std::erase_if(rows, [&](const auto& row) { return row[0] != test; });
    EXPECT_FALSE(rows.empty()) << test;
    for (auto& row : rows) {
        for (std::string& field : row) {
            for (std::size_t at = 0; (at = field.find('\\', at)) != std::string::npos; ++at) {
                const char* const meaning = std::strchr("n\nr\rt\tv\vf\f\\\\", field.at(at + 1));
                meaning != nullptr ? field.replace(at, 2, 1, meaning[1]) : field;
            }
        }
    }
    return rows;
}
