// SPDX-License-Identifier: Apache-2.0
#include <mutex>

#include "agent/core/Story.h"
#include "command/commands/CommandContext.h"
#include "command/commands/CommandTable.h"
#include "command/commands/MailRound.h"
#include "command/mail/DirectMail.h"
#include "command/mail/MailFile.h"
#include "mail/smtp/MailEnvelope.h"
#include "mail/smtp/MailPayload.h"
#include "sip/Vocabulary.h"

namespace {

bool IsAboutUpdates(const CommandArguments& arguments) {
    if (!arguments.words.empty() && arguments.words[0] != "update") {
        throw CUsageError("\"" + arguments.words[0] + "\" is nothing to be mailed: leave it out, or say \"update\".");
    }
    return !arguments.words.empty();
}

std::vector<NumberedServer> ServersToTry(CIModuleLink& link, const CommandArguments& arguments) {
    std::vector<NumberedServer> servers = ReadMailServers(link);
    if (arguments.server) {
        std::erase_if(servers, [&](const NumberedServer& server) { return server.number != *arguments.server; });
        if (servers.empty()) {
            const std::string number = std::to_string(*arguments.server);
            throw CAgentError("mail server " + number + " is not set up: em-alert set host " + number + " NAME");
        }
    }
    return servers;
}

// Sends the test mail from this process, so that it can be heard what is said.
Outcome SendDirectly(CCommandContext& context, const CommandArguments& arguments) {
    CSmtpMessage mail = ComposeMail(context.Link(), IsAboutUpdates(arguments), std::nullopt);
    mail.SetSubject("TEST MAIL: " + mail.Subject());
    const std::vector<NumberedServer> servers = ServersToTry(context.Link(), arguments);
    MailReport report;
    if (mail.Sender().empty() || servers.empty()) {
        return MailOutcome(ReportWhatIsMissing(context.Link(), servers));
    }
    report.notes = LeftOutRecipients(mail);
    const bool tells = arguments.verbose && !context.Options().json;
    CMailWait wait(context, servers.size());
    std::mutex screen;  // what is said comes from another thread than the progress
    for (const NumberedServer& server : servers) {
        const auto tell = [&](char speaker, const std::string& line) {
            if (tells) {
                const std::lock_guard guard(screen);
                context.Terminal().Print(std::string(1, speaker) + " " + line + "\n");
            }
        };
        const auto goesOn = [&] {
            const std::lock_guard guard(screen);
            return wait.GoesOn(report.servers.size());
        };
        report.servers.push_back(SendThrough(server, mail, tell, goesOn));
        report.sent = report.servers.back().taken;
        if (report.sent) {
            break;
        }
    }
    wait.End();
    return MailOutcome(report);
}

}  // namespace

Outcome RunTestMail(CCommandContext& context, const CommandArguments& arguments) {
    if (arguments.server || arguments.verbose) {
        return SendDirectly(context, arguments);
    }
    Command request;
    request.oc = CM_AlerterSendTestMail;
    request.oe = IsAboutUpdates(arguments) ? 1 : 0;
    const std::vector<NumberedServer> servers = ReadMailServers(context.Link());
    CMailWait wait(context, servers.size());
    const ModuleAnswer answer = context.Link().Ask(request);
    wait.End();
    if (answer.command.st != kDone) {
        throw CAgentError("The module answered with " + StatusText(answer.command.st.value_or(kValueNotAvailable)) +
                          ".");
    }
    return MailOutcome(ReadReport(context, answer.traces, servers, answer.command.data == "0"));
}

Outcome RunSendMail(CCommandContext& context, const CommandArguments& arguments) {
    const std::string& path = arguments.words[0];
    if (path == "-" && context.Options().isConsole) {
        throw CUsageError("Standard input holds the commands; put the mail into a file.");
    }
    const std::string mail = ReadMailFile(path, [] { return CCommandContext::GoesOn({}); });
    Command request;
    request.oc = CM_SendMail;
    request.data = JsonString(mail);
    const std::vector<NumberedServer> servers = ReadMailServers(context.Link());
    CMailWait wait(context, servers.size());
    const ModuleAnswer answer = context.Link().Ask(request);
    wait.End();
    if (answer.command.st == kMissingMailData) {
        throw CAgentError("The mail has no sender: it needs a line such as \"From: alerts@example.net\".");
    }
    if (answer.command.st != kDone && answer.command.st != kFailed) {
        throw CAgentError("The module answered with " + StatusText(answer.command.st.value_or(kValueNotAvailable)) +
                          ".");
    }
    return MailOutcome(ReadReport(context, answer.traces, servers, answer.command.st == kDone));
}

Outcome RunPreview(CCommandContext& context, const CommandArguments& arguments) {
    const CSmtpMessage mail = ComposeMail(context.Link(), IsAboutUpdates(arguments), arguments.language);
    std::string wire;
    for (const char c : BuildMailPayload(CMailEnvelope(mail.Sender(), mail), mail)) {
        wire += c == '\n' ? "\r\n" : std::string(1, c);  // as the upload does, whatever stands before it
    }
    std::string text = mail.Text();
    std::erase(text, '\r');
    Outcome outcome;
    outcome.json = "{\"subject\":" + JsonString(mail.Subject()) + ",\"text\":" + JsonString(text) +
                   ",\"wire\":" + JsonString(wire) + "}";
    std::erase(wire, '\r');
    outcome.text = "Subject: " + mail.Subject() + "\n\n" + text + "\n-- as on the wire --\n" + wire;
    return outcome;
}
