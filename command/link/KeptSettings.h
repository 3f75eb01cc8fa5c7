// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "agent/core/Command.h"

/// The alert settings that a user has changed, in a file that several commands may change at the same time. Each
/// operation throws CAgentError, which names the file.
class CKeptSettings {
public:
    explicit CKeptSettings(std::string file) : file_(std::move(file)) {}

    /// @return what is kept; nothing where there is no file
    std::vector<Command> Read() const;

    /// Replaces one setting, and leaves the others as they are by then.
    void Change(const Command& answer) const;

private:
    const std::string file_;
};
