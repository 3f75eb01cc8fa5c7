// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/core/AnswerTable.h"
#include "service/config/ServiceConfig.h"
#include "service/core/StateStore.h"

/// What the module is answered for its alert settings: what was set at run time, else what the configuration says, else
/// texts that a person can read. Where nothing is left of a value, the module's own default holds again. One thread,
/// the loop's.
class CAlertAnswers {
public:
    CAlertAnswers(CAnswerTable& answers, CStateStore& store);

    /// @return the values that are others now, for the module to be told
    std::vector<AlertSettingValue> Configure(std::vector<AlertSettingValue> configured);

    /// Whether it answers for one of the alert settings, and for all objects.
    static bool IsSetting(const Command& answer);

    /// Sets a value at run time, for good. Any other answer holds until the service ends.
    void Change(const Command& answer);

    /// Takes back what was set at run time.
    /// @return the values that are others now: one at most
    std::vector<AlertSettingValue> Reset(std::uint32_t id);

private:
    std::string ValueOf(std::uint32_t id) const;
    std::vector<AlertSettingValue> Update(std::uint32_t id);

    CAnswerTable& answers_;
    CStateStore& store_;
    CAnswerTable defaults_;
    std::vector<AlertSettingValue> configured_;
};
