// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "agent/core/Command.h"
#include "agent/core/Json.h"

/// Lines that the module printed as errors, or as the results of mails, in their order.
using Traces = std::vector<std::string>;

struct ModuleAnswer {
    Command command;
    Traces traces;  // printed while the request was under way
};

/// Thrown when what was waiting for an answer has been told to wait no longer.
class CBrokenOff final : public CAgentError {
public:
    CBrokenOff() : CAgentError("waiting was broken off; what was asked for may still be done") {}
};

/// The alert module as the command sees it: loaded into this process, or behind the socket of the service. One thread.
/// Every operation throws CAgentError, which says what was tried and why it failed.
class CIModuleLink {
public:
    /// Is told, about ten times a second while something is under way, what the module has printed so far.
    /// @return false to wait no longer
    using Waiting = std::function<bool(const Traces& traces)>;

    CIModuleLink() = default;
    virtual ~CIModuleLink() = default;
    CIModuleLink(const CIModuleLink&) = delete;
    CIModuleLink& operator=(const CIModuleLink&) = delete;
    CIModuleLink(CIModuleLink&&) = delete;
    CIModuleLink& operator=(CIModuleLink&&) = delete;

    /// True behind a socket.
    virtual bool IsService() const = 0;

    void SetWaiting(Waiting waiting) { waiting_ = std::move(waiting); }

    /// False when the module printed nothing as it was loaded: its traces are off, and it tells of no failure either.
    virtual bool HearsModule() = 0;

    /// Sends a request and waits for the answer, or for the reply that follows.
    virtual ModuleAnswer Ask(Command request) = 0;

    /// @return what the agent answers to a question of the module's
    virtual Command AgentAnswer(const Command& question) = 0;

    /// Replaces such an answer, and notices a changed setting to the module.
    virtual void ChangeSetting(std::uint32_t id, const std::string& data) = 0;

    /// @return the object that "em-alert --json status" prints
    virtual std::string Status() = 0;

    /// @return an array of the pending alerts, objects with name, designation, severity, since and text
    virtual std::string PendingAlerts() = 0;

    /// @return how many alerts were pending
    virtual std::size_t Acknowledge() = 0;

protected:
    bool GoesOn(const Traces& traces) const { return !waiting_ || waiting_(traces); }

private:
    Waiting waiting_;
};

/// How long the module may take for an answer: it tries two mail servers, with a look-up, a transfer and a farewell
/// each.
constexpr int kLongestAnswerSeconds = 300;
