// SPDX-License-Identifier: Apache-2.0
#include "command/mail/DirectMail.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <utility>

#include "mail/message/HeaderLines.h"
#include "mail/smtp/MailEnvelope.h"
#include "mail/smtp/MailPayload.h"
#include "mail/smtp/SmtpTransfer.h"

namespace {

/// Keeps the recipients that the server refuses.
class CRefusals {
public:
    void Hear(char speaker, const std::string& line) {
        constexpr std::string_view kRecipient = "RCPT TO:";
        const bool isRefusal = line.starts_with('4') || line.starts_with('5');
        const bool goesOn = line.find('-', 3) == 3;
        if (speaker == '>') {
            recipient_ = line.starts_with(kRecipient) ? line.substr(kRecipient.size()) : "";
        } else if (speaker == '<' && !recipient_.empty() && isRefusal && !goesOn) {
            refused.push_back(recipient_ + ": " + line);
        }
    }

    std::vector<std::string> refused;

private:
    std::string recipient_;
};

ServerResult Failure(const NumberedServer& server, const char* words) {
    return {.number = server.number,
            .server = server.Title(),
            .taken = false,
            .step = "connect",
            .words = words,
            .refused = {}};
}

int PerformWhile(const std::function<bool()>& goesOn, CSmtpTransfer& transfer, std::atomic<bool>& stopping) {
    constexpr std::chrono::milliseconds kInterval{100};
    std::future<int> result = std::async(std::launch::async, [&] { return transfer.Perform(); });
    while (result.wait_for(kInterval) != std::future_status::ready) {
        stopping = stopping || !goesOn();
    }
    const int code = result.get();
    if (stopping && code != 0) {
        throw CAgentError("sending was broken off");
    }
    return code;
}

void AddLeftOut(const std::vector<std::string>& all, const std::vector<std::string>& used,
                std::vector<std::string>& sentences) {
    for (const std::string& address : all) {
        if (std::ranges::find(used, address) == used.end()) {
            sentences.push_back("Unusable recipient left out: \"" + Printable(address) + "\"");
        }
    }
}

}  // namespace

std::vector<std::string> LeftOutRecipients(const CSmtpMessage& mail) {
    const CMailEnvelope envelope(mail.Sender(), mail);
    std::vector<std::string> sentences;
    AddLeftOut(mail.Recipients(), envelope.to, sentences);
    AddLeftOut(mail.RecipientsCc(), envelope.cc, sentences);
    return sentences;
}

ServerResult SendThrough(const NumberedServer& server, const CSmtpMessage& mail, CSmtpDialogue::Listener listener,
                         const std::function<bool()>& goesOn) {
    if (HasControlCharacter(server.server.host) || server.server.host.find(' ') != std::string::npos) {
        return Failure(server, "the name holds blanks or control characters");
    }
    const CMailEnvelope envelope(mail.Sender(), mail);
    if (!envelope.HasRecipients()) {
        return Failure(server, "there is no recipient that can be used, so it was not tried");
    }
    std::atomic<bool> stopping{false};
    CSmtpTransfer transfer(&stopping);
    if (!transfer) {
        return Failure(server, "libcurl does not work");
    }
    transfer.SetServer(server.server);
    transfer.SetEnvelope(envelope);
    transfer.SetPayload(BuildMailPayload(envelope, mail));
    if (server.server.logsIn) {
        transfer.SetLogin(server.server);
    }
    CRefusals refusals;
    transfer.SetListener([&](char speaker, const std::string& line) {
        refusals.Hear(speaker, line);
        if (listener) {
            listener(speaker, line);
        }
    });
    const int code = PerformWhile(goesOn, transfer, stopping);
    ServerResult result{.number = server.number,
                        .server = server.Title(),
                        .taken = code == 0,
                        .step = {},
                        .words = {},
                        .refused = std::move(refusals.refused)};
    if (!result.taken) {
        const std::string& refusal = transfer.Dialogue().LastRefusal();
        result.step = transfer.Dialogue().Step();
        result.words = refusal.empty() ? transfer.Explain(code) : refusal + " (" + transfer.Explain(code) + ")";
    }
    return result;
}
