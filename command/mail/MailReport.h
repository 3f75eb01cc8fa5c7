// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "command/link/ModuleLink.h"

/// What one mail server did with a mail.
struct ServerResult {
    unsigned number = 0;  // as it is set up
    std::string server;   // such as mail.example.net:25
    bool taken = false;
    std::string step;                  // at which it failed, as "connect" or "RCPT"
    std::string words;                 // the server's own, or else libcurl's
    std::vector<std::string> refused;  // recipients, each with the server's words
};

/// What became of a mail, server by server.
struct MailReport {
    bool sent = false;
    bool isKnown = true;                  // what the servers said; false when the module tells nothing of it
    std::vector<ServerResult> servers{};  // those that were tried
    std::vector<std::string> notes{};     // what kept the servers from being tried, and addresses that cannot be used

    /// True when every recipient was taken by a server.
    bool IsWhole() const;

    /// What is missing to that; empty when it is whole.
    std::string Failure() const;
};

/// Reads what the module printed while it sent a mail.
/// @param servers  those that are set up, in the order in which they are tried; number and server of each
MailReport ReadMailReport(const Traces& traces, const std::vector<ServerResult>& servers, bool sent);

/// @return a line for each server, refused recipient and note, and how it ended
std::string MailReportText(const MailReport& report);
std::string MailReportJson(const MailReport& report);
