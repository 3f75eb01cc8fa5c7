// SPDX-License-Identifier: Apache-2.0
#include "service/control/ControlNews.h"

#include <algorithm>

#include "service/components/StatusJson.h"
#include "sip/Vocabulary.h"

void CControlNews::AwaitCheck(const std::string& name, CControlClient& client) {
    std::erase_if(checking_, [this](const auto& one) { return server_.Find(one.second) == nullptr; });
    checking_.emplace(name, client.Id());
    client.Owe();
}

void CControlNews::AwaitAnswer(CControlClient& client, const Command& request) {
    client.BeginRequest();
    waiting_.push_back({.client = client.Id(), .operation = request.oc});
}

/// @return whether the client waited for an answer to this
bool CControlNews::Take(std::uint64_t client, const Command& request) {
    const auto found = std::ranges::find_if(
        waiting_, [&](const Waiting& one) { return one.client == client && one.operation == request.oc; });
    const bool isFound = found != waiting_.end();
    if (isFound) {
        waiting_.erase(found);
    }
    return isFound;
}

void CControlNews::OnReturned(std::uint64_t id, const Command& request, const Command& answer) {
    const bool isAnswer = answer.st != kAnswerFollows && Take(id, request);
    CControlClient* client = server_.Find(id);
    if (client != nullptr) {
        client->SendMessage("returned", MessageText(answer));
    }
    if (client != nullptr && isAnswer) {
        client->EndRequest();
    }
}

void CControlNews::OnComponent(const Component& component) {
    const std::string json = ComponentJson(component);
    server_.ForEach([&](CControlClient& client) {
        if (client.isSubscribed) {
            client.Send("{\"kind\":\"component\",\"component\":" + json + "}");
        }
    });
}

void CControlNews::AnswerChecking(const std::string& name, const std::function<void(CControlClient&)>& answer) {
    const auto [begin, end] = checking_.equal_range(name);
    for (auto at = begin; at != end; ++at) {
        if (CControlClient* client = server_.Find(at->second)) {
            answer(*client);
            client->Settle();
        }
    }
    checking_.erase(begin, end);
}

void CControlNews::OnChecked(const Component& component) {
    AnswerChecking(component.config.name, [&component](CControlClient& client) {
        client.Send("{\"kind\":\"checked\",\"component\":" + ComponentJson(component) + "}");
    });
}

void CControlNews::OnUnchecked(const std::string& name) {
    AnswerChecking(name,
                   [&name](CControlClient& client) { client.SendError("there is no check " + name + " any more"); });
}

/// @return the client that waits for this reply, 0 when nobody does
std::uint64_t CControlNews::TakeAsker(const TranscriptEntry& entry) {
    const auto found =
        std::ranges::find_if(waiting_, [&](const Waiting& one) { return one.operation == entry.command.oc; });
    if (entry.kind != "reply" || found == waiting_.end()) {
        return 0;
    }
    const std::uint64_t client = found->client;
    waiting_.erase(found);
    return client;
}

void CControlNews::OnModuleEntry(const TranscriptEntry& entry) {
    const std::uint64_t asker = TakeAsker(entry);
    server_.ForEach([&](CControlClient& client) {
        if (client.Id() == asker || client.isSubscribed) {
            client.SendMessage(entry.kind, entry.message);
        }
        if (client.Id() == asker) {
            client.EndRequest();
        }
    });
}

void CControlNews::OnTrace(const std::string& print) {
    const std::string line = "{\"kind\":\"trace\",\"level\":1,\"text\":" + JsonString(print) + "}";
    server_.ForEach([&](CControlClient& client) {
        if (client.HasRequests()) {
            client.Send(line);
        }
    });
}
