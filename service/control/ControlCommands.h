#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "agent/core/Json.h"
#include "service/control/ControlServer.h"
#include "service/core/Service.h"

/// What the lines at the control socket mean (docs/service.md): steps of scenarios for the module, and questions and
/// orders to the service. One thread, the loop's.
class CControlCommands final : public CIServiceListener {
public:
    /// @throw CAgentError as CControlServer
    CControlCommands(CLoop& loop, CService& service, const std::string& path);

    void OnComponent(const Component& component) override;
    void OnModuleEntry(const TranscriptEntry& entry) override;
    void OnTrace(const std::string& print) override;

private:
    using Value = CRapidJsonUtil::value;
    struct Order;
    static const std::vector<Order>& Orders();

    void OnLine(CControlClient& client, const std::string& line);
    void Ask(CControlClient& client, const Value& value);
    void Acknowledge(CControlClient& client, const Value& value);
    void Check(CControlClient& client, const Value& value);
    void Submit(CControlClient& client, const Value& value);
    void Subscribe(CControlClient& client, const Value& value);
    void Request(CControlClient& client, const Value& value);
    void Notify(CControlClient& client, const Value& value);
    void Set(CControlClient& client, const Value& value);
    void Deliver(CControlClient& client, const Value& value);
    void OnReturned(std::uint64_t id, const Command& answer);

    struct Waiting {
        std::uint64_t client;
        std::uint32_t operation;
    };

    CService& service_;
    std::deque<Waiting> waiting_;                         // for replies
    std::multimap<std::string, std::uint64_t> checking_;  // clients that wait for a component's next result
    CControlServer server_;
};
