// SPDX-License-Identifier: Apache-2.0
#include "mail/smtp/SmtpDialogue.h"

#include "mail/message/HeaderLines.h"
#include "platform/Cancellation.h"
#include "platform/diagnostics/Trace.h"

int CSmtpDialogue::Observe(CURL* /*handle*/, curl_infotype type, char* data, std::size_t size, void* dialogue) {
    try {
        auto& self = *static_cast<CSmtpDialogue*>(dialogue);
        if (type == CURLINFO_HEADER_OUT) {
            self.OnCommand({data, size});
        } else if (type == CURLINFO_HEADER_IN) {
            self.OnAnswer({data, size});
        } else if (type == CURLINFO_TEXT) {
            self.Tell('*', {data, size});
        }
    } catch (...) {  // out of memory: a trace is lost, the mail need not be
        LetCancellationPass();
    }
    return 0;
}

void CSmtpDialogue::Tell(char speaker, std::string_view line) const {
    if (listener_ && !(farewell_ && speaker == '*')) {  // the farewell is broken off on purpose
        listener_(speaker, Printable(line));
    }
}

// The method of a log-in may be shown; its first answer may follow at once, further ones on lines of their own.
std::string CSmtpDialogue::WithoutCredentials(std::string_view command) const {
    constexpr std::string_view kLogIn = "AUTH ";
    if (!command.starts_with(kLogIn)) {
        return logsIn_ ? "***" : std::string(command);
    }
    const std::size_t end = command.find(' ', kLogIn.size());
    return end == std::string_view::npos ? std::string(command) : std::string(command.substr(0, end)) + " ***";
}

void CSmtpDialogue::OnCommand(std::string_view command) {
    Tell('>', WithoutCredentials(command));
    logsIn_ = logsIn_ || command.starts_with("AUTH");
    static constexpr const char* kSteps[] = {"EHLO", "HELO", "STARTTLS", "AUTH", "MAIL", "RCPT", "DATA"};

    const std::string_view name = command.substr(0, command.find_first_of(" \r\n"));
    for (const char* step : kSteps) {
        if (name == step) {
            step_ = step;
        }
    }
    farewell_ = name == "QUIT";
    constexpr std::string_view kRecipient = "RCPT TO:";
    recipient_ = command.starts_with(kRecipient) ? Printable(command.substr(kRecipient.size())) : "";
}

void CSmtpDialogue::OnAnswer(std::string_view line) {
    constexpr std::string_view kGoOn = "334";
    Tell('<', line);
    logsIn_ = logsIn_ && line.starts_with(kGoOn);
    const bool refused = line.starts_with('4') || line.starts_with('5');
    const bool goesOn = line.find('-', 3) == 3;
    if (!refused || goesOn) {
        return;
    }
    lastRefusal_ = Printable(line);
    if (!recipient_.empty()) {
        EM_TRACE(1, "\nCSMTPClient                : ERROR! Recipient %s refused: %s", recipient_.c_str(),
                 lastRefusal_.c_str());
    }
}
