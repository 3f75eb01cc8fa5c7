// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/core/AnswerTable.h"

/// What is answered to the module where nobody has said anything else: texts that make a mail which a person wants to
/// get. The answers of the table stay, but for those that these replace.
void SetDefaultAnswers(CAnswerTable& table);
