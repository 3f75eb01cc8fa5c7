// SPDX-License-Identifier: Apache-2.0
#include "service/core/MachineAnswers.h"

#include <array>
#include <fstream>

#include "agent/core/Json.h"
#include "service/components/CheckResult.h"
#include "sip/Vocabulary.h"

namespace {

struct Question {
    std::uint32_t operation;
    std::uint32_t extension;
    const char* file;
};

constexpr auto kQuestions = std::to_array<Question>({
    {kReadSystemInformation, kSystemModel, "/sys/class/dmi/id/product_name"},
    {kReadSystemInformation, kSystemSerialNumber, "/sys/class/dmi/id/product_serial"},
    {kReadConfigurationValue, kSystemAssetTag, "/sys/class/dmi/id/chassis_asset_tag"},
});

}  // namespace

void AnswerMachineQuestions(CAnswerTable& answers) {
    for (const Question& question : kQuestions) {
        std::string line;
        std::ifstream file(question.file);
        if (std::getline(file, line) && !FirstLine(line).empty()) {
            answers.Set(MakeCommand(question.operation, question.extension, JsonString(FirstLine(line))));
        }
    }
    Command updates;
    updates.oc = kReadUpdateMessage;
    updates.data = R"("%1 updates are available.")";
    answers.Set(updates);
}
