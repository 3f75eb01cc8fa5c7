// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

/// Runs scripts/smtp-server (its head describes the options) while it lives: a real SMTP server on a port of its own.
class CSmtpServer {
public:
    struct Mail {
        std::string from;
        std::vector<std::string> to;
        std::string data;  ///< the bytes as received, dot-stuffing undone
        bool tls = false;
        std::string user;
        std::string password;
    };

    /// @param options  of the script, without --mails and --commands; a certificate is added when they ask for TLS
    explicit CSmtpServer(std::vector<std::string> options = {});
    ~CSmtpServer();
    CSmtpServer(const CSmtpServer&) = delete;
    CSmtpServer& operator=(const CSmtpServer&) = delete;

    unsigned short Port() const { return port_; }

    /// The mails accepted so far, at once when there are `count`, at the latest after 10 seconds. A client that got its
    /// answer finds its mail here: 0 waits for nothing.
    std::vector<Mail> WaitForMails(std::size_t count) const;

    /// "CONNECT" and the command lines so far, each ended by a line feed; of AUTH only the name.
    std::string Commands() const;

    /// The PEM file with the server's own certificate (and key).
    std::string Certificate() const { return directory_ + "/certificate.pem"; }

private:
    void Start(std::vector<std::string> arguments);

    std::string directory_;
    pid_t pid_ = -1;
    unsigned short port_ = 0;
};
