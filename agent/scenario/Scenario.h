// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <istream>
#include <string>

#include "agent/core/Agent.h"
#include "agent/core/AnswerTable.h"
#include "agent/core/Json.h"

/// Drives the agent with lines of text, each a JSON object for one step (docs/agent.md lists them). Empty lines and
/// those that begin with "#" are for the reader.
class CScenario {
public:
    CScenario(CAgent& agent, CAnswerTable& answers) : agent_(agent), answers_(answers) {}

    /// Runs each line as soon as it is read.
    /// @param name  of the scenario, for messages
    /// @throw CAgentError naming the line that is not understood or failed
    void Run(std::istream& lines, const std::string& name);

private:
    struct Step;
    static const Step* FindStep(const CRapidJsonUtil::value& line);
    void Execute(const CRapidJsonUtil::value& line);
    void ExecuteAll(const CRapidJsonUtil::value& lines);

    void Event(const CRapidJsonUtil::value& line);
    void Notice(const CRapidJsonUtil::value& line);
    void Request(const CRapidJsonUtil::value& line);
    void Notify(const CRapidJsonUtil::value& line);
    void Set(const CRapidJsonUtil::value& line);
    void Wait(const CRapidJsonUtil::value& line);
    void Await(const CRapidJsonUtil::value& line);
    void Restart(const CRapidJsonUtil::value& line);
    void Parallel(const CRapidJsonUtil::value& line);

    CAgent& agent_;
    CAnswerTable& answers_;
};
