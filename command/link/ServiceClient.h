// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "command/link/ModuleLink.h"
#include "platform/files/UniqueFd.h"
#include "sip/RapidJsonUtil.h"

/// The module behind the control socket of the service: a JSON object a line each way.
class CServiceClient final : public CIModuleLink {
public:
    /// @return null when no service answers at this path
    /// @throw CAgentError when one is there that this user may not speak to
    static std::unique_ptr<CServiceClient> Connect(const std::string& path);

    bool IsService() const override { return true; }
    bool HearsModule() override { return Query(R"({"ask":"traces"})", "traces", "heard") == "true"; }
    ModuleAnswer Ask(Command request) override;
    Command AgentAnswer(const Command& question) override;
    void ChangeSetting(std::uint32_t id, const std::string& data) override;
    std::string Status() override;
    std::string PendingAlerts() override;
    std::size_t Acknowledge() override;

    /// Sends a line and waits for the one of this kind that answers it.
    /// @return the member of that line, as JSON; "null" when it has none
    std::string Query(const std::string& line, const char* kind, const char* member);

    /// Has the service tell every change from now on.
    void Subscribe() { Query(R"({"subscribe":true})", "subscribed", "kind"); }

    /// No answer is awaited any more, and no change: what still comes is for nobody, and the next command connects
    /// anew.
    void HangUp() { isOver_ = true; }

    /// Waits for the next line.
    /// @return nothing when none came in time
    std::optional<CRapidJsonUtil::Document> NextLine(std::chrono::milliseconds time);

private:
    CServiceClient(CUniqueFd socket, std::string path) : socket_(std::move(socket)), path_(std::move(path)) {}
    void Send(const std::string& line);
    CRapidJsonUtil::Document WaitFor(const std::function<bool(const CRapidJsonUtil::Document&)>& isWanted);
    CRapidJsonUtil::Document ParseLine(const std::string& line);
    bool ReadMore(std::chrono::milliseconds time);
    void ConnectAgain();
    [[noreturn]] void Fail(const std::string& reason);

    CUniqueFd socket_;
    std::string path_;
    std::string read_;  // and not yet taken
    Traces traces_;     // of the request that is under way
    bool isOver_ = false;
};
