#pragma once

#include <fstream>
#include <regex>

#include "support/TraceCapture.h"

/// What a file of rows expects at a trace level: its rows "LEVEL text" up to that level, without the level.
inline std::string RowsUpTo(const std::string& file, unsigned int level) {
    std::ifstream input(file);
    std::string rows;
    for (std::string row; std::getline(input, row);) {
        rows += row.at(0) <= static_cast<char>('0' + level) ? row.substr(2) + '\n' : "";
    }
    return rows;
}

/// The prints in which `wanted` is found, one a row, with "\n" for a newline and "#" for an address or a descriptor.
inline std::string Rows(const CTraceCapture& trace, const std::string& wanted) {
    const std::regex address(
        R"((\b(Record|object|Thread|ThreadId|dev|fd)( = ?|=| )|, arg = |address = 0x|from 0x| on (?=\d))(0x)?[0-9a-fA-F]+)");
    std::string rows;
    for (const std::string& print : trace.Prints()) {
        if (std::regex_search(print, std::regex(wanted))) {
            const std::string row = std::regex_replace(print, std::regex("\n"), "\\n");
            rows += std::regex_replace(row, address, "$1#") + '\n';
        }
    }
    return rows;
}
