// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <sstream>

#include <curl/curl.h>

#include "bench/Program.h"
#include "bench/Row.h"
#include "bench/SmtpSink.h"
#include "mail/smtp/MailPayload.h"
#include "mail/smtp/SMTPClient.h"
#include "mail/smtp/Smtp.h"
#include "testing/TempDirectory.h"

namespace {

constexpr const char* kSender = "server@example.com";
constexpr const char* kRecipient = "operator@example.com";
constexpr int kMailBytes = 2048;
constexpr int kBatch = 300;  // so many mails that the start of smtp-source does not count
constexpr int kFewMails = 30;

CSmtpMessage Mail() {
    CSmtpMessage mail;
    mail.SetSender(kSender);
    mail.AddRecipients(kRecipient);
    mail.SetSubject("Status of the server");
    std::string text;
    while (text.size() < kMailBytes) {
        text += std::string(78, 'X') + "\n";  // the lines of smtp-source's mails
    }
    mail.SetText(text);
    return mail;
}

std::string Payload() {
    const CSmtpMessage mail = Mail();
    return BuildMailPayload(CMailEnvelope(kSender, mail), mail);
}

/// Sends with `send` and makes sure that what was to arrive did.
template <class Send>
void Deliver(benchmark::State& state, const CSmtpSink& sink, int mails, Send send) {
    const int before = sink.Mails();
    send();
    if (sink.Mails() != before + mails) {
        state.SkipWithError("the mails did not arrive");
    }
}

void SendByProject(const CSmtpSink& sink, const CSmtpMessage& mail) {
    static const std::atomic<bool> stopping{false};
    CSmtp(&stopping).SendMail(kSender, mail, "127.0.0.1", sink.Port(), nullptr, nullptr, false);
}

/// What libcurl needs to send the mail at all, with a handle of its own as the module's.
void SendByCurl(const std::string& url, const std::string& payload) {
    CURL* const handle = curl_easy_init();
    curl_slist* const recipients = curl_slist_append(nullptr, kRecipient);
    std::istringstream stream(payload);
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_MAIL_FROM, kSender);
    curl_easy_setopt(handle, CURLOPT_MAIL_RCPT, recipients);
    curl_easy_setopt(handle, CURLOPT_READFUNCTION, CSMTPClient::read_callback);
    curl_easy_setopt(handle, CURLOPT_READDATA, &stream);
    curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
    curl_easy_perform(handle);
    curl_easy_cleanup(handle);
    curl_slist_free_all(recipients);
}

void SendProject(benchmark::State& state) {
    const CSmtpSink sink;
    const CSmtpMessage mail = Mail();
    Measure(state, [&] { Deliver(state, sink, 1, [&] { SendByProject(sink, mail); }); });
}

void SendFloor(benchmark::State& state) {
    const CSmtpSink sink;
    const std::string url = "smtp://127.0.0.1:" + std::to_string(sink.Port());
    const std::string payload = Payload();
    Measure(state, [&] { Deliver(state, sink, 1, [&] { SendByCurl(url, payload); }); });
}

/// @param command  sends `mails` mails, from its standard input or of its own, to the port in the place of "PORT"
void SendByProgram(benchmark::State& state, const std::string& command, int mails) {
    const CSmtpSink sink;
    const CTempDirectory directory("/tmp");
    const std::string file = directory.Write("mail", Payload());
    std::vector<std::string> arguments;
    std::istringstream words(command);
    for (std::string word; words >> word;) {
        const std::size_t at = word.find("PORT");
        arguments.push_back(at == std::string::npos ? word : word.replace(at, 4, std::to_string(sink.Port())));
    }
    MeasureReported(state, [&] {
        const auto begin = std::chrono::steady_clock::now();
        Deliver(state, sink, mails, [&] { RunProgram(arguments, file); });
        return SecondsSince(begin) / mails;
    });
}

void SendBatch(benchmark::State& state, int mails) {
    const CSmtpSink sink;
    const CSmtpMessage mail = Mail();
    MeasureReported(state, [&] {
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < mails; ++i) {
            SendByProject(sink, mail);
        }
        return SecondsSince(begin) / mails;
    });
}

void AddBeside(const std::string& row, const std::string& command, int mails) {
    AddRow(
        row, Clock::Manual, [mails](benchmark::State& state) { SendBatch(state, std::max(mails, kFewMails)); },
        [command, mails](benchmark::State& state) { SendByProgram(state, command, mails); }, 1);
}

}  // namespace

void AddMailRows() {
    const std::string batch = std::to_string(kBatch);
    AddRow("mail/send", Clock::Real, SendProject, SendFloor);
    AddBeside("mail/send-beside-smtp-source",
              "smtp-source -s 1 -m " + batch + " -l 2048 -f " + kSender + " -t " + kRecipient + " inet:127.0.0.1:PORT",
              kBatch);
    AddBeside("mail/send-beside-curl",
              std::string("curl --silent --upload-file - --mail-from ") + kSender + " --mail-rcpt " + kRecipient +
                  " smtp://127.0.0.1:PORT",
              1);
    AddBeside("mail/send-beside-msmtp",
              std::string("msmtp --host=127.0.0.1 --port=PORT --from=") + kSender + " " + kRecipient, 1);
}
