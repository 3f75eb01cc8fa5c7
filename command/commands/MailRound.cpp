// SPDX-License-Identifier: Apache-2.0
#include "command/commands/MailRound.h"

#include <algorithm>

#include "command/commands/CommandTable.h"
#include "command/mail/MailSetting.h"
#include "platform/diagnostics/DebugTraceConfig.h"
#include "sip/Vocabulary.h"

CMailWait::CMailWait(CCommandContext& context, std::size_t servers, std::string inVain)
    : context_(context), servers_(servers), inVain_(std::move(inVain)) {
    context_.Link().SetWaiting([this](const Traces& traces) { return Tell(traces); });
}

void CMailWait::End() {
    context_.Link().SetWaiting(CCommandContext::GoesOn);
    context_.Terminal().ShowProgress({});
}

bool CMailWait::Tell(const Traces& traces) {
    return GoesOn(static_cast<std::size_t>(std::ranges::count_if(
        traces, [](const std::string& trace) { return trace.find("ERROR! Server \"") != std::string::npos; })));
}

bool CMailWait::GoesOn(std::size_t failed) {
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start_).count();
    if (servers_ != 0) {
        context_.Terminal().ShowProgress("mail server " + std::to_string(std::min(failed + 1, servers_)) + " of " +
                                         std::to_string(servers_) + ", " + std::to_string(seconds) + " s");
    }
    const bool goesOn = CCommandContext::GoesOn({});
    if (!goesOn && !inVain_.empty() && !CConsoleWait::EndIsAskedFor()) {
        context_.Terminal().Print(inVain_);
    }
    return goesOn;
}

MailReport ReportWhatIsMissing(CIModuleLink& link, const std::vector<NumberedServer>& servers) {
    MailReport report;
    if (servers.empty()) {
        report.notes.emplace_back("no mail server is set up: em-alert set host 1 NAME");
    }
    if (MailSettingText(link, kSender).empty()) {
        report.notes.emplace_back("no sender is set up: em-alert set sender ADDRESS");
    }
    if (MailSettingText(link, kRecipients).empty() && MailSettingText(link, kRecipientsCc).empty()) {
        report.notes.emplace_back("no recipient is set up: em-alert set recipients ADDRESS");
    }
    return report;
}

MailReport ReadReport(CCommandContext& context, const Traces& traces, const std::vector<NumberedServer>& servers,
                      bool sent) {
    CIModuleLink& link = context.Link();
    std::vector<ServerResult> titles;
    for (const NumberedServer& server : servers) {
        ServerResult title;
        title.number = server.number;
        title.server = server.Title();
        titles.push_back(title);
    }
    MailReport report = ReadMailReport(traces, titles, sent);
    if (!sent && report.servers.empty() && report.notes.empty()) {
        report = ReportWhatIsMissing(link, servers);
    }
    if (traces.empty() && report.notes.empty() && !link.HearsModule()) {
        report = {.sent = sent,
                  .isKnown = false,
                  .notes = {"what the servers said is not known: " + WhyNothingIsHeard(link) +
                            "; \"test-mail -v\" hears them itself"}};
    }
    return report;
}

Outcome MailOutcome(const MailReport& report) {
    return {.text = MailReportText(report), .json = MailReportJson(report), .failure = report.Failure()};
}

std::string WhyTracesAreSilent() {
    const std::string directory = CDebugTraceConfig::kDirectory;
    return CDebugTraceConfig::IsOffBy(directory.c_str())
               ? directory + " is there and holds no .ini file, which switches all traces off"
               : std::string();
}

std::string WhyNothingIsHeard(const CIModuleLink& link) {
    const std::string silence = link.IsService() ? "" : WhyTracesAreSilent();
    return !silence.empty()   ? silence
           : link.IsService() ? "em-alertd was started with the module's traces switched off"
                              : "the module's traces are off; trace level 1 or above switches them on";
}
