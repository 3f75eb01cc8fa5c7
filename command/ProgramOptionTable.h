// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string_view>

/// An option of the program, for its help and its manual page.
struct ProgramOptionRow {
    std::string_view names;  // with a comma between them
    std::string_view value;  // empty for a switch
    std::string_view help;
};

std::span<const ProgramOptionRow> ProgramOptionTable();
