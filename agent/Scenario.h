#pragma once

#include <istream>
#include <string>

#include "agent/Agent.h"
#include "agent/AnswerTable.h"
#include "agent/Json.h"

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
    static const Step* FindStep(const rapidjson::Value& line);
    void Execute(const rapidjson::Value& line);
    void ExecuteAll(const rapidjson::Value& lines);

    void Event(const rapidjson::Value& line);
    void Notice(const rapidjson::Value& line);
    void Request(const rapidjson::Value& line);
    void Notify(const rapidjson::Value& line);
    void Set(const rapidjson::Value& line);
    void Wait(const rapidjson::Value& line);
    void Await(const rapidjson::Value& line);
    void Restart(const rapidjson::Value& line);
    void Parallel(const rapidjson::Value& line);

    CAgent& agent_;
    CAnswerTable& answers_;
};
