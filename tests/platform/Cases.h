#pragma once

#include <cctype>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

/// A field as it is meant: \n \r \t \v \f \0 \\ as in C, \(1000x) for so many x.
inline std::string Unescape(const std::string& field) {
    constexpr char kMeanings[] = "n\nr\rt\tv\vf\f0\0\\\\";
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '\\') {
            text += field[i];
        } else if (field[++i] == '(') {
            std::size_t digits = 0;
            const auto count = static_cast<std::size_t>(std::stoi(field.substr(i + 1), &digits));
            text += std::string(count, field[i += digits + 1]);
            ++i;
        } else {
            text += kMeanings[std::string(kMeanings, sizeof kMeanings).find(field[i]) + 1];
        }
    }
    return text;
}

/// The rows of a data file beside the tests, each behind the name of its test, with " | " between the fields.
inline std::vector<std::vector<std::string>> Cases(const std::string& file, const std::string& test) {
    std::vector<std::vector<std::string>> rows;
    std::ifstream lines(EM_TEST_DATA "/" + file);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> row;
        for (std::size_t at = 0, end = 0; end != std::string::npos; at = end + 3) {
            end = line.find(" | ", at);
            row.push_back(Unescape(line.substr(at, end - at)));
        }
        if (row[0] == test) {
            rows.push_back(row);
        }
    }
    EXPECT_FALSE(rows.empty()) << test;
    return rows;
}
