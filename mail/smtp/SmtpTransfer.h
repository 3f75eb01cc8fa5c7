// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include <curl/curl.h>

#include "mail/smtp/CurlUse.h"
#include "mail/smtp/MailEnvelope.h"
#include "mail/smtp/MailServer.h"
#include "mail/smtp/SmtpDialogue.h"

/// One upload to an SMTP server through a libcurl handle of its own. An option that cannot be set is traced, and the
/// transfer goes on without it.
class CSmtpTransfer {
public:
    /// @param stopping  ends the transfer once it is true; may be null. Not owned.
    explicit CSmtpTransfer(const std::atomic<bool>* stopping);
    CSmtpTransfer(const CSmtpTransfer&) = delete;
    CSmtpTransfer& operator=(const CSmtpTransfer&) = delete;
    CSmtpTransfer(CSmtpTransfer&&) = delete;
    CSmtpTransfer& operator=(CSmtpTransfer&&) = delete;
    ~CSmtpTransfer() = default;

    /// False when libcurl gave no handle; nothing else may be called then.
    explicit operator bool() const { return handle_ != nullptr; }

    void SetServer(const MailServer& server);
    void SetEnvelope(const CMailEnvelope& envelope);
    void SetPayload(std::string payload);
    void SetLogin(const MailServer& server);

    /// To be called before Perform: has somebody hear what client and server say.
    void SetListener(CSmtpDialogue::Listener listener) { dialogue_.SetListener(std::move(listener)); }

    /// Runs the transfer and traces why it failed.
    /// @return the libcurl result code
    int Perform();

    const CSmtpDialogue& Dialogue() const { return dialogue_; }

    /// @return libcurl's words for the result of Perform
    const char* Explain(int result) const;

private:
    struct CHandleDeleter {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };
    struct CListDeleter {
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };

    bool IsStopping() const { return CCurlUse::MustEnd() || (stopping_ != nullptr && *stopping_); }
    void SetLimits();
    void TraceFailure(CURLcode result) const;
    static int OnProgress(void* transfer, curl_off_t, curl_off_t, curl_off_t, curl_off_t);

    const CCurlUse use_;  // first: ends when all else has
    const std::atomic<bool>* stopping_;
    std::string url_;
    std::string error_ = std::string(CURL_ERROR_SIZE, '\0');
    bool explained_ = true;  // what stands in the buffer, if anything, is about the transfer
    std::istringstream payload_;
    CSmtpDialogue dialogue_;
    std::unique_ptr<curl_slist, CListDeleter> recipients_;
    std::unique_ptr<CURL, CHandleDeleter> handle_;  // last: its clean-up still uses what the options point to
};
