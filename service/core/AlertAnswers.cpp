// SPDX-License-Identifier: Apache-2.0
#include "service/core/AlertAnswers.h"

#include <algorithm>
#include <utility>

#include "agent/settings/DefaultAnswers.h"
#include "agent/settings/Settings.h"
#include "service/core/MachineAnswers.h"
#include "sip/Vocabulary.h"

CAlertAnswers::CAlertAnswers(CAnswerTable& answers, CStateStore& store) : answers_(answers), store_(store) {
    for (CAnswerTable* const table : {&defaults_, &answers_}) {
        SetDefaultAnswers(*table);
        AnswerMachineQuestions(*table);
    }
}

/// "DA", empty for none.
std::string CAlertAnswers::ValueOf(std::uint32_t id) const {
    if (const auto kept = store_.Setting(id)) {
        return *kept;
    }
    const auto found = std::ranges::find(configured_, id, &AlertSettingValue::id);
    return found != configured_.end() ? found->data : defaults_.Find(MakeCommand(kReadConfigurationValue, id)).data;
}

std::vector<AlertSettingValue> CAlertAnswers::Update(std::uint32_t id) {
    const std::string before = answers_.Find(MakeCommand(kReadConfigurationValue, id)).data;
    std::string now = ValueOf(id);
    if (now.empty() && !before.empty()) {
        const auto setting = std::ranges::find(AlertSettings(), id, &OperatorSetting::id);
        now = setting != AlertSettings().end() ? FallbackData(*setting) : "";
    }
    if (now == before) {
        return {};
    }
    Command answer = MakeCommand(kReadConfigurationValue, id, now);
    if (now.empty()) {
        answer.st = kNotHandled;  // one that the module asks for at each mail
        answers_.Set(answer);
        return {};
    }
    answers_.Set(answer);
    return {{.id = id, .data = now}};
}

std::vector<AlertSettingValue> CAlertAnswers::Configure(std::vector<AlertSettingValue> configured) {
    configured_ = std::move(configured);
    std::vector<std::uint32_t> ids = store_.Settings();
    std::ranges::transform(AlertSettings(), std::back_inserter(ids), &OperatorSetting::id);
    std::vector<AlertSettingValue> changed;
    for (const std::uint32_t id : ids) {
        std::ranges::copy(Update(id), std::back_inserter(changed));
    }
    return changed;
}

bool CAlertAnswers::IsSetting(const Command& answer) {
    return answer.oc == kReadConfigurationValue && answer.oe && !answer.oi && !answer.ca &&
           std::ranges::find(AlertSettings(), *answer.oe, &OperatorSetting::id) != AlertSettings().end();
}

void CAlertAnswers::Change(const Command& answer) {
    answers_.Set(answer);
    if (IsSetting(answer)) {
        store_.KeepSetting(*answer.oe, answer.data);
        store_.Save();
    }
}

std::vector<AlertSettingValue> CAlertAnswers::Reset(std::uint32_t id) {
    store_.ForgetSetting(id);
    store_.Save();
    return Update(id);
}
