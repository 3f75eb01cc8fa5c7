// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include <curl/curl.h>

/// Listens to what client and server say, to name the step at which a transfer failed and to trace each recipient that
/// the server refuses. Of what the client says it keeps nothing but command names and recipients: the rest may be
/// credentials.
class CSmtpDialogue {
public:
    /// Hears each line, without its end: '>' the client's, '<' the server's, '*' what libcurl tells of the connection.
    /// Credentials are masked; control characters are "?".
    using Listener = std::function<void(char speaker, const std::string& line)>;
    void SetListener(Listener listener) { listener_ = std::move(listener); }

    /// libcurl's debug callback; `dialogue` is a CSmtpDialogue. Always returns 0.
    static int Observe(CURL* handle, curl_infotype type, char* data, std::size_t size, void* dialogue);

    /// The name of the last command before the farewell, "connect" before the first.
    const char* Step() const { return step_; }

    /// True once the client has said QUIT.
    bool IsFarewell() const { return farewell_; }

    /// The last answer with a 4xx or 5xx code; empty when there was none.
    const std::string& LastRefusal() const { return lastRefusal_; }

private:
    void Tell(char speaker, std::string_view line) const;
    std::string WithoutCredentials(std::string_view command) const;
    void OnCommand(std::string_view command);
    void OnAnswer(std::string_view line);

    const char* step_ = "connect";
    bool farewell_ = false;
    bool logsIn_ = false;    // what the client says now are credentials
    std::string recipient_;  // of the command that waits for its answer
    std::string lastRefusal_;
    Listener listener_;
};
