// SPDX-License-Identifier: Apache-2.0
#include "agent/traces/TraceSink.h"
#include "command/commands/CommandContext.h"
#include "command/commands/CommandTable.h"
#include "command/commands/MailRound.h"

namespace {

Outcome Said(std::string text) {
    return {.text = std::move(text), .json = {}, .failure = {}};
}

}  // namespace

Outcome RunTrace(CCommandContext& context, const CommandArguments& arguments) {
    constexpr std::uint32_t kHighestLevel = 5;
    const std::string& word = arguments.words[0];
    const bool isSwitch = word == "on" || word == "off";
    const auto level = ParseNumber(word);
    if (!isSwitch && (!level || *level > kHighestLevel)) {
        throw CUsageError("The trace level is a number from 0 (none) to 5 (device detail); or say on or off.");
    }
    CLocalModule* module = context.Local();
    if (module == nullptr) {
        throw CAgentError("The module is loaded by the service, whose journal holds the traces.");
    }
    Debug.Show(word != "off");
    std::string text = word == "on" ? "Traces are shown.\n" : "Traces are hidden.\n";
    if (!isSwitch) {
        module->Reload(*level);
        text = "The module is loaded again, with trace level " + word + "; no alert is pending any more.\n";
    }
    if (word != "off" && word != "0" && !module->HearsModule()) {
        text += "But it prints nothing: " + WhyNothingIsHeard(*module) + ".\n";
    }
    return Said(text);
}

Outcome RunHelp(CCommandContext& /*context*/, const CommandArguments& arguments) {
    Outcome outcome;
    if (arguments.words.empty()) {
        outcome.text = CommandList();
    } else {
        const CommandRow& row = FindCommandRow(arguments.words[0]);
        outcome.text = row.Usage() + ": " + std::string(row.help) + ".\n" + std::string(row.more) +
                       (row.list != nullptr ? row.list() : "");
    }
    outcome.json = "{\"help\":" + JsonString(outcome.text) + "}";
    return outcome;
}

Outcome RunQuit(CCommandContext& context, const CommandArguments& /*arguments*/) {
    context.Quit();
    return {};
}
