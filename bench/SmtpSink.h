// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <thread>

#include "platform/files/UniqueFd.h"

/// A mail server on loopback that takes every mail, throws it away and counts it: a thread of this program that serves
/// one connection after the other, so that it costs as little as a server can. It offers no extension.
class CSmtpSink {
public:
    CSmtpSink();
    ~CSmtpSink();
    CSmtpSink(const CSmtpSink&) = delete;
    CSmtpSink& operator=(const CSmtpSink&) = delete;

    unsigned short Port() const { return port_; }

    /// Mails whose last line has come. A client that got its answer finds its mail counted.
    int Mails() const { return mails_; }

private:
    void Run();
    void Serve(int connection);

    CUniqueFd listener_;
    unsigned short port_ = 0;
    std::atomic<int> mails_{0};
    std::thread thread_;
};
