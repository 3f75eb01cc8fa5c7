// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "service/control/ControlServer.h"
#include "service/core/Service.h"

/// Who at the control socket hears what happens: subscribers all of it, others what they wait for. One thread, the
/// loop's.
class CControlNews final : public CIServiceListener {
public:
    /// @param server  lives longer
    explicit CControlNews(CControlServer& server) : server_(server) {}

    /// The client gets the next result of a component's check.
    void AwaitCheck(const std::string& name, CControlClient& client);

    /// The client sends a request, and gets the module's errors and mail results until it is answered. To be called
    /// before the module is asked: its reply may overtake the request's return.
    void AwaitAnswer(CControlClient& client, const Command& request);

    /// The request has come back, as its answer or with the word that one follows.
    void OnReturned(std::uint64_t client, const Command& request, const Command& answer);

    void OnComponent(const Component& component) override;
    void OnChecked(const Component& component) override;
    void OnUnchecked(const std::string& name) override;
    void OnModuleEntry(const TranscriptEntry& entry) override;
    void OnTrace(const std::string& print) override;

private:
    struct Waiting {
        std::uint64_t client;
        std::optional<std::uint32_t> operation;
    };
    void AnswerChecking(const std::string& name, const std::function<void(CControlClient&)>& answer);
    bool Take(std::uint64_t client, const Command& request);
    std::uint64_t TakeAsker(const TranscriptEntry& entry);

    CControlServer& server_;
    std::deque<Waiting> waiting_;                         // for answers, in the order of the requests
    std::multimap<std::string, std::uint64_t> checking_;  // for a component's next result
};
