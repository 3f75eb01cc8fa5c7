// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/core/Json.h"

/// The command line is wrong; what() tells what is right.
class CUsageError : public CAgentError {
public:
    using CAgentError::CAgentError;
};
