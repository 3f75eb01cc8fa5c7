// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "command/commands/CommandContext.h"
#include "command/commands/CommandTable.h"
#include "command/mail/MailComposer.h"
#include "command/mail/MailReport.h"

/// Shows people, while it lives and a mail is under way, which server is being tried and for how long, and lets an
/// interrupt end the wait.
class CMailWait {
public:
    /// @param servers  how many are set up
    /// @param inVain  tells people that an interrupt ends nothing, where that is so
    CMailWait(CCommandContext& context, std::size_t servers, std::string inVain = {});
    ~CMailWait() { End(); }
    CMailWait(const CMailWait&) = delete;
    CMailWait& operator=(const CMailWait&) = delete;
    CMailWait(CMailWait&&) = delete;
    CMailWait& operator=(CMailWait&&) = delete;

    void End();

    /// For a wait that is not the link's: shows how it stands.
    /// @param failed  how many servers have not taken the mail
    /// @return false when a signal has asked for the end
    bool GoesOn(std::size_t failed);

private:
    bool Tell(const Traces& traces);

    CCommandContext& context_;
    const std::size_t servers_;
    const std::string inVain_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// Reads what the module printed about a mail, and finds out why no server was tried, or why nothing was printed.
MailReport ReadReport(CCommandContext& context, const Traces& traces, const std::vector<NumberedServer>& servers,
                      bool sent);

/// For a mail that no server was tried with: notes what is missing, if anything is.
MailReport ReportWhatIsMissing(CIModuleLink& link, const std::vector<NumberedServer>& servers);

/// @return the outcome of a command that sends a mail
Outcome MailOutcome(const MailReport& report);

/// What keeps the module from printing, whatever its trace level; empty when nothing does.
std::string WhyTracesAreSilent();

/// Why the module is not heard.
std::string WhyNothingIsHeard(const CIModuleLink& link);
