// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <ctime>

#include "agent/core/Story.h"
#include "agent/settings/Settings.h"
#include "agent/traces/ModuleTraces.h"
#include "command/commands/CommandContext.h"
#include "command/commands/CommandTable.h"
#include "command/commands/MailRound.h"
#include "command/commands/StatusView.h"
#include "command/mail/MailSetting.h"
#include "sip/Vocabulary.h"

namespace {

bool AreAlertsMailed(CLocalModule& module) {
    const OperatorSetting& mail = FindSetting(AlertSettings(), "mail");
    const Command answer = module.AgentAnswer(MakeCommand(kReadConfigurationValue, mail.id));
    return !answer.data.empty() && ShowSetting(mail, answer.data) == "on";
}

struct MailServers {
    std::vector<NumberedServer> servers;
    std::string fault;  // why they are not known
};

// What is wrong with the mail servers keeps no alert from being raised.
MailServers FindMailServers(CLocalModule& module) {
    try {
        return {.servers = ReadMailServers(module), .fault = {}};
    } catch (const CBrokenOff&) {
        throw;
    } catch (const CAgentError& error) {
        return {.servers = {}, .fault = error.what()};
    }
}

void TellOfMail(CCommandContext& context, const Traces& traces, const MailServers& mailServers, Outcome& outcome) {
    bool isKnown = std::ranges::any_of(traces, IsMailSkipped);
    for (const std::string& trace : traces) {
        if (const auto code = MailReturnCode(trace)) {
            const bool sent = *code == 0;
            const Outcome mail = MailOutcome(
                mailServers.fault.empty() ? ReadReport(context, traces, mailServers.servers, sent)
                                          : MailReport{.sent = sent, .isKnown = false, .notes = {mailServers.fault}});
            outcome.text += mail.text;
            outcome.json = "{\"mail\":" + mail.json + "}";
            outcome.failure = mail.failure;
            isKnown = true;
        }
    }
    if (!isKnown) {
        const std::string silence = WhyTracesAreSilent();
        outcome.text += "What became of its mail is not known: " +
                        (silence.empty() ? "the module tells that from trace level 2 on" : silence) + ".\n";
        outcome.json = R"({"mail":null})";
        outcome.failure = "it is not known what became of the mail";
    }
}

// What the operator says of a component: the module gets it as an event.
Outcome TellStatus(CCommandContext& context, const std::vector<std::string>& words) {
    constexpr std::uint32_t kWorst = 3;
    if (words.size() != 3) {
        throw CUsageError("It goes: status, or: " + FindCommandRow("status").Usage() + ".");
    }
    const auto status = ParseNumber(words[0]);
    if (!status || *status < 1 || *status > kWorst) {
        throw CUsageError("The status is 1 (OK), 2 (warning) or 3 (error).");
    }
    CLocalModule* module = context.Local();
    if (module == nullptr) {
        throw CAgentError("The service knows this server's status; tell it of a component's with \"submit\".");
    }
    const bool areMailed = AreAlertsMailed(*module);
    const MailServers mailServers = areMailed ? FindMailServers(*module) : MailServers();
    CMailWait wait(context, mailServers.servers.size(),
                   "The mail cannot be broken off alone; Ctrl-C again ends the console.\n");
    const Traces traces = module->Deliver(words[1], words[2], *status);
    wait.End();
    Outcome outcome;
    outcome.text = "The status of \"" + words[1] + "\" and of the server is now " + std::to_string(*status) + " (" +
                   context.StatusWord(*status) + ").\n";
    if (areMailed) {
        TellOfMail(context, traces, mailServers, outcome);
    }
    return outcome;
}

}  // namespace

Outcome RunStatus(CCommandContext& context, const CommandArguments& arguments) {
    if (!arguments.words.empty()) {
        return TellStatus(context, arguments.words);
    }
    context.RequireMemory();
    Outcome outcome;
    outcome.json = context.Link().Status();
    outcome.text = StatusText(context, outcome.json, context.Link().IsService());
    return outcome;
}

Outcome RunPending(CCommandContext& context, const CommandArguments& /*arguments*/) {
    context.RequireMemory();
    Outcome outcome;
    outcome.json = context.Link().PendingAlerts();
    outcome.text = PendingText(context, outcome.json);
    return outcome;
}

Outcome RunAcknowledge(CCommandContext& context, const CommandArguments& /*arguments*/) {
    context.RequireMemory();
    const std::size_t count = context.Link().Acknowledge();
    Outcome outcome;
    outcome.json = "{\"acknowledged\":" + std::to_string(count) + "}";
    outcome.text = count == 0 ? "No alert was pending.\n"
                   : count == 1
                       ? "The pending alert is acknowledged: the speaker is silent.\n"
                       : "The " + std::to_string(count) + " pending alerts are acknowledged: the speaker is silent.\n";
    return outcome;
}

Outcome RunSupported(CCommandContext& context, const CommandArguments& /*arguments*/) {
    constexpr std::array<const char*, 2> kKinds = {"status", "updates"};
    Outcome outcome;
    for (std::uint32_t kind = 0; kind < kKinds.size(); ++kind) {
        Command request;
        request.oc = CM_AlerterAlertSupported;
        request.oe = kind;
        const Command answer = context.Link().Ask(request).command;
        if (answer.st != kNotHandled && answer.st != kDone) {
            throw CAgentError("The module answered with " + StatusText(answer.st.value_or(kValueNotAvailable)) + ".");
        }
        const bool supported = answer.st == kDone && answer.data == "1";
        const std::string name = kKinds.at(kind);
        outcome.text += "Alerts about " + name + (supported ? " are supported.\n" : " are not supported.\n");
        outcome.json += (kind == 0 ? "{\"" : ",\"") + name + "\":" + (supported ? "true" : "false");
    }
    outcome.json += "}";
    return outcome;
}
