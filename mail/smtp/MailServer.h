// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// One mail server, and how to get in.
struct MailServer {
    std::string host;       ///< name or address, with "smtp://" or "smtps://" before it or not
    unsigned short port{};  ///< TCP
    bool logsIn{};          ///< with user name and password, even empty ones
    std::string userName;
    std::string password;  ///< in plain text; never traced

    /// Insists on an encrypted connection (by STARTTLS, unless the server is an smtps one). The server's certificate is
    /// checked against the system's store.
    bool useTls{};
};
