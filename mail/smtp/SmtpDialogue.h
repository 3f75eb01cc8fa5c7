#pragma once

#include <string>
#include <string_view>

#include <curl/curl.h>

/// Listens to what client and server say, to name the step at which a transfer failed and to trace each recipient that
/// the server refuses. Of what the client says it keeps nothing but command names and recipients: the rest may be
/// credentials.
class CSmtpDialogue {
public:
    /// libcurl's debug callback; `dialogue` is a CSmtpDialogue. Always returns 0.
    static int Observe(CURL* handle, curl_infotype type, char* data, std::size_t size, void* dialogue);

    /// The name of the last command before the farewell, "connect" before the first.
    const char* Step() const { return step_; }

    /// True once the client has said QUIT.
    bool IsFarewell() const { return farewell_; }

    /// The last answer with a 4xx or 5xx code; empty when there was none.
    const std::string& LastRefusal() const { return lastRefusal_; }

private:
    void OnCommand(std::string_view command);
    void OnAnswer(std::string_view line);

    const char* step_ = "connect";
    bool farewell_ = false;
    std::string recipient_;  // of the command that waits for its answer
    std::string lastRefusal_;
};
