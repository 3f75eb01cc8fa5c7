#include "mail/SmtpTransfer.h"

#include <string_view>

#include "mail/SMTPClient.h"
#include "mail/SMTPClientTrace.h"
#include "platform/WithoutPassword.h"

namespace {

constexpr long kTimeout = 15;  // seconds

void Check(CURLcode result, const char* failure) {
    if (result != CURLE_OK) {
        EM_TRACE(1, SMTP_CLIENT_TAG "%s", failure);
    }
}

}  // namespace

CSmtpTransfer::CSmtpTransfer(const std::atomic<bool>* stopping) : stopping_(stopping), handle_(CCurlUse::NewHandle()) {
    if (handle_) {
        SetLimits();
    }
}

void CSmtpTransfer::SetLimits() {
    CURL* const handle = handle_.get();
    // No signals in a host that has threads and handlers of its own; no road to a server but the configured one.
    Check(curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L), "ERROR! Failed to set CURLOPT_NOSIGNAL!");
    Check(curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "smtp,smtps"), "ERROR! Failed to set CURLOPT_PROTOCOLS_STR!");
    Check(curl_easy_setopt(handle, CURLOPT_PROXY, ""), "ERROR! Failed to set CURLOPT_PROXY!");
    // The last end of a farewell, where the timeout of the transfer no longer counts; OnProgress comes long before.
    Check(curl_easy_setopt(handle, CURLOPT_SERVER_RESPONSE_TIMEOUT, kTimeout),
          "ERROR! Failed to set CURLOPT_SERVER_RESPONSE_TIMEOUT!");
    if (CCurlUse::OutlivesModule()) {
        // The system's resolver may take minutes: when the time is up, a look-up is left behind, not waited for.
        Check(curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L), "ERROR! Failed to set CURLOPT_QUICK_EXIT!");
    }
    // Farewells belong to the transfer: in the clean-up of the handle they would not heed the progress callback.
    Check(curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L), "ERROR! Failed to set CURLOPT_FORBID_REUSE!");
    Check(curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, error_.data()), "ERROR! Failed to set CURLOPT_ERRORBUFFER!");

    Check(curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, OnProgress),
          "ERROR! Failed to set CURLOPT_XFERINFOFUNCTION!");
    Check(curl_easy_setopt(handle, CURLOPT_XFERINFODATA, this), "ERROR! Failed to set CURLOPT_XFERINFODATA!");
    Check(curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L), "ERROR! Failed to set CURLOPT_NOPROGRESS!");

    Check(curl_easy_setopt(handle, CURLOPT_DEBUGFUNCTION, CSmtpDialogue::Observe),
          "ERROR! Failed to set CURLOPT_DEBUGFUNCTION!");
    Check(curl_easy_setopt(handle, CURLOPT_DEBUGDATA, &dialogue_), "ERROR! Failed to set CURLOPT_DEBUGDATA!");
    Check(curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L), "ERROR! Failed to set CURLOPT_VERBOSE!");
}

void CSmtpTransfer::SetServer(const std::string& server, unsigned short port, bool useTls) {
    CURL* const handle = handle_.get();
    const bool hasScheme = server.starts_with("smtp://") || server.starts_with("smtps://");
    url_ = (hasScheme ? "" : "smtp://") + server + ":" + std::to_string(port);
    EM_TRACE(3, SMTP_CLIENT_TAG "smtp_server: \"%s\"", WithoutPassword(url_).c_str());
    Check(curl_easy_setopt(handle, CURLOPT_URL, url_.c_str()), "ERROR! Failed to set CURLOPT_URL!");

    EM_TRACE(3, SMTP_CLIENT_TAG "use_tls: %s", useTls ? "true" : "false");
    if (useTls) {
        Check(curl_easy_setopt(handle, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL)),
              "ERROR! Failed to set CURLOPT_USE_SSL!");
    }
    Check(curl_easy_setopt(handle, CURLOPT_USERAGENT, "csmtpclient/1.0"), "ERROR! Failed to set CURLOPT_USERAGENT!");
    EM_TRACE(3, SMTP_CLIENT_TAG "connection_timeout: %d", static_cast<int>(kTimeout));
    Check(curl_easy_setopt(handle, CURLOPT_TIMEOUT, kTimeout), "ERROR! Failed to set CURLOPT_TIMEOUT!");
}

void CSmtpTransfer::SetEnvelope(const CMailEnvelope& envelope) {
    CURL* const handle = handle_.get();
    Check(curl_easy_setopt(handle, CURLOPT_MAIL_FROM, envelope.senderMail.c_str()),
          "ERROR! Failed to set CURLOPT_MAIL_FROM!");
    for (const auto* list : {&envelope.to, &envelope.cc}) {
        for (const std::string& address : *list) {
            curl_slist* const longer = curl_slist_append(recipients_.get(), address.c_str());
            if (longer == nullptr) {
                EM_TRACE(1, SMTP_CLIENT_TAG "ERROR! Failed to add recipient \"%s\"!", address.c_str());
                continue;
            }
            static_cast<void>(recipients_.release());  // part of the longer list
            recipients_.reset(longer);
        }
    }
    Check(curl_easy_setopt(handle, CURLOPT_MAIL_RCPT, recipients_.get()), "ERROR! Failed to set CURLOPT_MAIL_RCPT!");
    // A refused recipient must not keep the mail from the others.
    Check(curl_easy_setopt(handle, CURLOPT_MAIL_RCPT_ALLLOWFAILS, 1L),
          "ERROR! Failed to set CURLOPT_MAIL_RCPT_ALLLOWFAILS!");
}

void CSmtpTransfer::SetPayload(std::string payload) {
    CURL* const handle = handle_.get();
    payload_.str(std::move(payload));
    Check(curl_easy_setopt(handle, CURLOPT_READFUNCTION, CSMTPClient::read_callback),
          "ERROR! Failed to set CURLOPT_READFUNCTION!");
    Check(curl_easy_setopt(handle, CURLOPT_READDATA, &payload_), "ERROR! Failed to set CURLOPT_READDATA!");
    Check(curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L), "ERROR! Failed to set CURLOPT_UPLOAD!");
}

void CSmtpTransfer::SetLogin(const std::string& userName, const std::string& password) {
    CURL* const handle = handle_.get();
    EM_TRACE(3, SMTP_CLIENT_TAG "smtp_username: \"%s\"", userName.c_str());
    Check(curl_easy_setopt(handle, CURLOPT_USERNAME, userName.c_str()), "ERROR! Failed to set CURLOPT_USERNAME!");
    Check(curl_easy_setopt(handle, CURLOPT_PASSWORD, password.c_str()), "ERROR! Failed to set CURLOPT_PASSWORD!");
}

int CSmtpTransfer::Perform() {
    const CURLcode result = IsStopping() ? CURLE_ABORTED_BY_CALLBACK : curl_easy_perform(handle_.get());
    if (result != CURLE_OK) {
        TraceFailure(result);
    }
    return result;
}

void CSmtpTransfer::TraceFailure(CURLcode result) const {
    EM_TRACE(1, SMTP_CLIENT_TAG "ERROR! Failed to curl_easy_perform! Error code: %d", static_cast<int>(result));
    EM_TRACE(1, SMTP_CLIENT_TAG "ERROR! Server \"%s\", step %s: %s (%d)%s%s", WithoutPassword(url_).c_str(),
             dialogue_.Step(), explained_ && error_.front() != '\0' ? error_.c_str() : curl_easy_strerror(result),
             static_cast<int>(result),
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
