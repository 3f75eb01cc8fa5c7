// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <set>
#include <string>
#include <vector>

#include "agent/core/Json.h"
#include "service/control/ControlNews.h"
#include "service/control/ControlServer.h"
#include "service/core/Service.h"

/// What the lines at the control socket mean (docs/service.md): steps of scenarios for the module, and questions and
/// orders to the service. One thread, the loop's.
class CControlCommands {
public:
    /// @throw CAgentError as CControlServer
    CControlCommands(CLoop& loop, CService& service, const std::string& path);

    CIServiceListener& Listener() { return news_; }

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
    void RequireKept() const;
    void Set(CControlClient& client, const Value& value);
    void Count();
    template <typename Answer>
    auto Later(CControlClient& client, Answer answer);
    void RefuseTooMuch(Command answer);
    void Reset(CControlClient& client, const Value& value);
    void Deliver(CControlClient& client, const Value& value);

    CService& service_;
    CControlServer server_;
    CControlNews news_{server_};
    std::size_t underWay_ = 0;   // what the module has to do for clients
    std::set<std::string> set_;  // the questions that are answered so, but for settings
};
