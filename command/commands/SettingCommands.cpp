// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdint>
#include <optional>

#include "agent/core/Story.h"
#include "agent/settings/Settings.h"
#include "command/commands/CommandContext.h"
#include "command/commands/CommandTable.h"
#include "command/mail/MailSetting.h"
#include "platform/diagnostics/WithoutPassword.h"
#include "service/config/Printable.h"

namespace {

using Words = std::span<const std::string>;

constexpr unsigned kServers = 2;

std::string TitleOf(const OperatorSetting& setting, unsigned server) {
    return std::string(setting.name) + (setting.IsPerServer() ? " " + std::to_string(server) : "");
}

// The data as everybody may see them: a host may carry a log-in.
std::string WithoutSecret(const OperatorSetting& setting, const std::string& data) {
    if (setting.kind == OperatorSetting::Kind::Secret) {
        return data.empty() || data == R"("")" ? data : JsonString("(hidden)");
    }
    const auto host = setting.id == kServerHost ? AnswerText(MakeCommand(0, 0, data)) : std::nullopt;
    return host ? JsonString(WithoutPassword(*host)) : data;
}

// One value, as a line and as a member of an object.
void AddValue(Outcome& outcome, const std::string& title, const OperatorSetting& setting, const std::string& data) {
    const std::string seen = WithoutSecret(setting, data);
    std::string line = title;
    line.resize(std::max<std::size_t>(line.size() + 1, 18), ' ');
    outcome.text += line + (seen.empty() ? "(not set)" : Printable(ShowSetting(setting, seen), SIZE_MAX)) + "\n";
    outcome.json +=
        (outcome.json.empty() ? "{" : ",") + JsonString(title) + ":" + (seen.empty() ? std::string("null") : seen);
}

Outcome Finished(Outcome outcome) {
    outcome.json += "}";
    return outcome;
}

// Takes the server's number off the words behind a setting's name.
unsigned TakeServer(const OperatorSetting& setting, Words& words) {
    if (!setting.IsPerServer()) {
        return 0;
    }
    const auto server = words.empty() ? std::nullopt : ParseNumber(words[0]);
    if (!server || *server < 1 || *server > kServers) {
        const std::string name(setting.name);
        throw CUsageError(name + " belongs to a mail server, so say which, 1 or 2: " + name + " 1");
    }
    words = words.subspan(1);
    return *server;
}

std::string AskForPassword(CCommandContext& context, const std::string& title) {
    const auto password = context.Terminal().ReadSecret(title + ": ");
    if (!password) {
        throw CAgentError("No password was given, and none is changed.");
    }
    return *password;
}

std::string AgentData(CCommandContext& context, const OperatorSetting& setting) {
    Command question;
    question.oc = kReadConfigurationValue;
    question.oe = setting.id;
    return context.Link().AgentAnswer(question).data;
}

}  // namespace

Outcome RunGet(CCommandContext& context, const CommandArguments& arguments) {
    Outcome outcome;
    if (!arguments.words.empty()) {
        const OperatorSetting& setting = FindSetting(MailServerSettings(), arguments.words[0]);
        Words rest = Words(arguments.words).subspan(1);
        const unsigned server = TakeServer(setting, rest);
        if (!rest.empty()) {
            throw CUsageError(arguments.words[0] + " is the same for both mail servers: get " + arguments.words[0]);
        }
        AddValue(outcome, TitleOf(setting, server), setting, ReadMailSetting(context.Link(), setting.id, server).data);
        return Finished(outcome);
    }
    for (unsigned server = 0; server <= kServers; ++server) {
        for (const OperatorSetting& setting : MailServerSettings()) {
            if (setting.IsPerServer() == (server != 0)) {
                AddValue(outcome, TitleOf(setting, server), setting,
                         ReadMailSetting(context.Link(), setting.id, server).data);
            }
        }
    }
    return Finished(outcome);
}

Outcome RunSet(CCommandContext& context, const CommandArguments& arguments) {
    const OperatorSetting& setting = FindSetting(MailServerSettings(), arguments.words[0]);
    if (setting.isReadOnly) {
        throw CUsageError(arguments.words[0] + " cannot be set: the module counts them.");
    }
    Words value = Words(arguments.words).subspan(1);
    const unsigned server = TakeServer(setting, value);
    std::vector<std::string> asked;
    if (value.empty() && setting.kind == OperatorSetting::Kind::Secret) {
        asked.push_back(AskForPassword(context, TitleOf(setting, server)));
        value = asked;
    }
    if (value.empty()) {
        throw CUsageError("The value is missing: set " + TitleOf(setting, server) + " VALUE");
    }
    Command request;
    request.oc = kWriteConfigurationValue;
    request.oe = setting.id;
    request.data = SettingData(setting, value);
    if (setting.IsPerServer()) {
        request.oi = server - 1;
    }
    const ModuleAnswer answer = context.Link().Ask(request);
    if (answer.command.st != kDone) {
        throw CAgentError(TitleOf(setting, server) + " was not changed: " + WhyNotWritten(answer));
    }
    Outcome outcome;  // as it is kept: characters that the file cannot hold are dropped, say
    AddValue(outcome, TitleOf(setting, server), setting, ReadMailSetting(context.Link(), setting.id, server).data);
    return Finished(outcome);
}

Outcome RunSetting(CCommandContext& context, const CommandArguments& arguments) {
    Outcome outcome;
    if (arguments.words.empty()) {
        for (const OperatorSetting& setting : AlertSettings()) {
            AddValue(outcome, std::string(setting.name), setting, AgentData(context, setting));
        }
        return Finished(outcome);
    }
    const OperatorSetting& setting = FindSetting(AlertSettings(), arguments.words[0]);
    if (arguments.words.size() > 1) {
        context.Link().ChangeSetting(setting.id, SettingData(setting, Words(arguments.words).subspan(1)));
    }
    AddValue(outcome, std::string(setting.name), setting, AgentData(context, setting));
    return Finished(outcome);
}

Outcome RunReset(CCommandContext& context, const CommandArguments& arguments) {
    const OperatorSetting& setting = FindSetting(AlertSettings(), arguments.words[0]);
    context.Service().Query("{\"reset\":" + std::to_string(setting.id) + "}", "reset", "kind");
    Outcome outcome;
    AddValue(outcome, std::string(setting.name), setting, AgentData(context, setting));
    return Finished(outcome);
}
