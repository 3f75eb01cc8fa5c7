// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "agent/core/AnswerTable.h"

/// Answers the module's questions about the machine: model, serial number and asset tag as its firmware (DMI) has them;
/// what it does not tell, or only root may read, stays unanswered.
void AnswerMachineQuestions(CAnswerTable& answers);
