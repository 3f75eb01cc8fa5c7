// SPDX-License-Identifier: Apache-2.0
#include "mail/smtp/SmtpTransfer.h"

#include <string_view>

#include "mail/smtp/MailPayload.h"
#include "platform/diagnostics/Trace.h"
#include "platform/diagnostics/WithoutPassword.h"

namespace {

constexpr long kTimeout = 15;  // seconds

}  // namespace

/// Sets an option of the transfer's handle; one that libcurl refuses is traced by its name.
#define EM_SET_OPTION(option, value)                                                         \
    do {                                                                                     \
        if (curl_easy_setopt(handle_.get(), option, value) != CURLE_OK) {                    \
            EM_TRACE(1, "\nCSMTPClient                : ERROR! Failed to set " #option "!"); \
        }                                                                                    \
    } while (false)

CSmtpTransfer::CSmtpTransfer(const std::atomic<bool>* stopping) : stopping_(stopping), handle_(CCurlUse::NewHandle()) {
    if (handle_) {
        SetLimits();
    }
}

void CSmtpTransfer::SetLimits() {
    // No signals in a host that has threads and handlers of its own; no road to a server but the configured one.
    EM_SET_OPTION(CURLOPT_NOSIGNAL, 1L);
    EM_SET_OPTION(CURLOPT_PROTOCOLS_STR, "smtp,smtps");
    EM_SET_OPTION(CURLOPT_PROXY, "");
    // The last end of a farewell, where the timeout of the transfer no longer counts; OnProgress comes long before.
    EM_SET_OPTION(CURLOPT_SERVER_RESPONSE_TIMEOUT, kTimeout);
    if (CCurlUse::OutlivesModule()) {
        // The system's resolver may take minutes: when the time is up, a look-up is left behind, not waited for.
        EM_SET_OPTION(CURLOPT_QUICK_EXIT, 1L);
    }
    // Farewells belong to the transfer: in the clean-up of the handle they would not heed the progress callback.
    EM_SET_OPTION(CURLOPT_FORBID_REUSE, 1L);
    EM_SET_OPTION(CURLOPT_ERRORBUFFER, error_.data());

    EM_SET_OPTION(CURLOPT_XFERINFOFUNCTION, OnProgress);
    EM_SET_OPTION(CURLOPT_XFERINFODATA, this);
    EM_SET_OPTION(CURLOPT_NOPROGRESS, 0L);

    EM_SET_OPTION(CURLOPT_DEBUGFUNCTION, CSmtpDialogue::Observe);
    EM_SET_OPTION(CURLOPT_DEBUGDATA, &dialogue_);
    EM_SET_OPTION(CURLOPT_VERBOSE, 1L);
}

void CSmtpTransfer::SetServer(const MailServer& server) {
    const bool hasScheme = server.host.starts_with("smtp://") || server.host.starts_with("smtps://");
    url_ = (hasScheme ? "" : "smtp://") + server.host + ":" + std::to_string(server.port);
    EM_TRACE(3, "\nCSMTPClient                : smtp_server: \"%s\"", WithoutPassword(url_).c_str());
    EM_SET_OPTION(CURLOPT_URL, url_.c_str());

    EM_TRACE(3, "\nCSMTPClient                : use_tls: %s", server.useTls ? "true" : "false");
    if (server.useTls) {
        EM_SET_OPTION(CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
    }
    EM_SET_OPTION(CURLOPT_USERAGENT, "csmtpclient/1.0");
    EM_TRACE(3, "\nCSMTPClient                : connection_timeout: %d", static_cast<int>(kTimeout));
    EM_SET_OPTION(CURLOPT_TIMEOUT, kTimeout);
}

void CSmtpTransfer::SetEnvelope(const CMailEnvelope& envelope) {
    EM_SET_OPTION(CURLOPT_MAIL_FROM, envelope.senderMail.c_str());
    for (const auto* list : {&envelope.to, &envelope.cc}) {
        for (const std::string& address : *list) {
            curl_slist* const longer = curl_slist_append(recipients_.get(), address.c_str());
            if (longer == nullptr) {
                EM_TRACE(1, "\nCSMTPClient                : ERROR! Failed to add recipient \"%s\"!", address.c_str());
                continue;
            }
            static_cast<void>(recipients_.release());  // part of the longer list
            recipients_.reset(longer);
        }
    }
    EM_SET_OPTION(CURLOPT_MAIL_RCPT, recipients_.get());
    // A refused recipient must not keep the mail from the others.
    EM_SET_OPTION(CURLOPT_MAIL_RCPT_ALLLOWFAILS, 1L);
}

void CSmtpTransfer::SetPayload(std::string payload) {
    payload_.str(std::move(payload));
    EM_SET_OPTION(CURLOPT_READFUNCTION, ReadPayload);
    EM_SET_OPTION(CURLOPT_READDATA, &payload_);
    EM_SET_OPTION(CURLOPT_UPLOAD, 1L);
}

void CSmtpTransfer::SetLogin(const MailServer& server) {
    EM_TRACE(3, "\nCSMTPClient                : smtp_username: \"%s\"", server.userName.c_str());
    EM_SET_OPTION(CURLOPT_USERNAME, server.userName.c_str());
    EM_SET_OPTION(CURLOPT_PASSWORD, server.password.c_str());
}

int CSmtpTransfer::Perform() {
    const CURLcode result = IsStopping() ? CURLE_ABORTED_BY_CALLBACK : curl_easy_perform(handle_.get());
    if (result != CURLE_OK) {
        TraceFailure(result);
    }
    return result;
}

const char* CSmtpTransfer::Explain(int result) const {
    const bool hasWords = explained_ && error_.front() != '\0';
    return hasWords ? error_.c_str() : curl_easy_strerror(static_cast<CURLcode>(result));
}

void CSmtpTransfer::TraceFailure(CURLcode result) const {
    EM_TRACE(1, "\nCSMTPClient                : ERROR! Failed to curl_easy_perform! Error code: %d",
             static_cast<int>(result));
    EM_TRACE(1, "\nCSMTPClient                : ERROR! Server \"%s\", step %s: %s (%d)%s%s",
             WithoutPassword(url_).c_str(), dialogue_.Step(), Explain(result), static_cast<int>(result),
             dialogue_.LastRefusal().empty() ? "" : ", last refusal: ", dialogue_.LastRefusal().c_str());
}

int CSmtpTransfer::OnProgress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    auto& self = *static_cast<CSmtpTransfer*>(transfer);
    if (self.IsStopping()) {
        return 1;
    }
    if (!self.dialogue_.IsFarewell()) {
        return 0;
    }
    // One call in a second: a server that has not answered the farewell by then is left without another word. The
    // result of the transfer stands already, but libcurl explains the break in a buffer that is still empty.
    self.explained_ = self.error_.front() != '\0';
    return 1;
}
