// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

/// Where text for the operator goes.
class CITextOutput {
public:
    CITextOutput() = default;
    virtual ~CITextOutput() = default;
    CITextOutput(const CITextOutput&) = delete;
    CITextOutput& operator=(const CITextOutput&) = delete;
    CITextOutput(CITextOutput&&) = delete;
    CITextOutput& operator=(CITextOutput&&) = delete;

    /// Shows text that ends with a newline, without spoiling a line that is being typed. Any thread.
    virtual void Print(std::string_view text) = 0;
};
