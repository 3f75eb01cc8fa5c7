// SPDX-License-Identifier: Apache-2.0
#include "agent/scenario/Scenario.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <string_view>
#include <thread>
#include <vector>

#include "sip/SipJson.h"

namespace {

constexpr std::uint32_t kAwaitMilliseconds = 5000;

std::uint32_t NumberOf(const CRapidJsonUtil::value& value, const char* what) {
    const auto number = ReadNumber(value);
    if (!number) {
        throw CAgentError(std::string(what) + " is a number from 0 to 4294967295");
    }
    return *number;
}

// A command, or a whole message that goes to the module as it stands.
void ReadMessage(const CRapidJsonUtil::value& value, SipJson& message) {
    const bool whole = CRapidJsonUtil::Find(value, "SIP") != nullptr;
    const std::string text = whole ? JsonText(value) : MessageText(ParseCommand(value));
    if (!message.Parse(text.data(), text.size())) {
        throw CAgentError("the message is nested too deeply, or holds what is no character");
    }
}

// The texts are taken out of the object, so that the rest is a command.
TranscriptPattern ReadPattern(const CRapidJsonUtil::value& value) {
    if (!value.IsObject()) {
        throw CAgentError(R"("await" needs an object such as {"kind":"reply","OC":"0x2242"})");
    }
    CRapidJsonUtil::Document copy;
    copy.CopyFrom(value, copy.GetAllocator());
    TranscriptPattern pattern;
    for (const auto& [key, text] : {std::pair("kind", &pattern.kind), std::pair("step", &pattern.step)}) {
        const CRapidJsonUtil::value* found = CRapidJsonUtil::Find(copy, rapidjson::StringRef(key));
        if (found != nullptr && !found->IsString()) {
            throw CAgentError(JsonString(key) + " is a text");
        }
        if (found != nullptr) {
            *text = found->GetString();
            copy.RemoveMember(key);
        }
    }
    pattern.command = ParseCommand(copy);
    return pattern;
}

}  // namespace

struct CScenario::Step {
    std::string_view name;
    void (CScenario::*run)(const CRapidJsonUtil::value& line);
    std::string_view option;  // a second member that the line may have
};

const CScenario::Step* CScenario::FindStep(const CRapidJsonUtil::value& line) {
    static constexpr std::array<Step, 9> kSteps = {{{"event", &CScenario::Event, ""},
                                                    {"notice", &CScenario::Notice, ""},
                                                    {"request", &CScenario::Request, ""},
                                                    {"notify", &CScenario::Notify, ""},
                                                    {"set", &CScenario::Set, ""},
                                                    {"wait", &CScenario::Wait, ""},
                                                    {"await", &CScenario::Await, "ms"},
                                                    {"restart", &CScenario::Restart, ""},
                                                    {"parallel", &CScenario::Parallel, ""}}};
    if (!line.IsObject()) {
        throw CAgentError(R"(a line is an object such as {"wait":100})");
    }
    for (const Step& step : kSteps) {
        if (CRapidJsonUtil::Find(line, {step.name.data(), static_cast<rapidjson::SizeType>(step.name.size())}) ==
            nullptr) {
            continue;
        }
        for (const auto& [key, value] : line.GetObject()) {
            if (key.GetString() != step.name && (step.option.empty() || key.GetString() != step.option)) {
                throw CAgentError(JsonString(key.GetString()) + " does not go with " + JsonString(step.name));
            }
        }
        return &step;
    }
    std::string names;
    for (const Step& step : kSteps) {
        names += (names.empty() ? "" : ", ") + std::string(step.name);
    }
    throw CAgentError("no step is known in this line; the steps are " + names);
}

void CScenario::Run(std::istream& lines, const std::string& name) {
    std::size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        const auto first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#') {
            continue;
        }
        try {
            Execute(ParseJson(line));
        } catch (const CAgentError& error) {
            throw CAgentError(name + ", line " + std::to_string(number) + ": " + error.what());
        }
    }
    // std::cin tells a failure as its end, and leaves it to the C stream to know better.
    if (lines.bad() || std::ferror(stdin) != 0) {
        throw CAgentError(name + " could not be read behind line " + std::to_string(number));
    }
}

void CScenario::Execute(const CRapidJsonUtil::value& line) {
    const Step* step = FindStep(line);
    (this->*step->run)(line);
}

void CScenario::Event(const CRapidJsonUtil::value& line) {
    SipJson message;
    ReadMessage(line["event"], message);
    agent_.SendEvent(message);
}

void CScenario::Notice(const CRapidJsonUtil::value& line) {
    SipJson message;
    ReadMessage(line["notice"], message);
    agent_.SendNotice(message);
}

void CScenario::Request(const CRapidJsonUtil::value& line) {
    SipJson message;
    ReadMessage(line["request"], message);
    agent_.Request(message);
}

void CScenario::Notify(const CRapidJsonUtil::value& line) {
    agent_.Notify(NumberOf(line["notify"], "\"notify\""));
}

void CScenario::Set(const CRapidJsonUtil::value& line) {
    answers_.Set(ParseAnswer(line["set"]));
}

void CScenario::Wait(const CRapidJsonUtil::value& line) {
    agent_.Work(std::chrono::milliseconds(NumberOf(line["wait"], "\"wait\"")));
}

void CScenario::Await(const CRapidJsonUtil::value& line) {
    const CRapidJsonUtil::value* limit = CRapidJsonUtil::Find(line, "ms");
    const std::uint32_t milliseconds = limit != nullptr ? NumberOf(*limit, "\"ms\"") : kAwaitMilliseconds;
    if (!agent_.Await(ReadPattern(line["await"]), std::chrono::milliseconds(milliseconds))) {
        throw CAgentError("nothing like " + JsonText(line["await"]) + " came within " + std::to_string(milliseconds) +
                          " ms");
    }
}

void CScenario::Restart(const CRapidJsonUtil::value& line) {
    if (!line["restart"].IsTrue()) {
        throw CAgentError("\"restart\" is true");
    }
    if (!agent_.Unload() || !agent_.Load()) {
        throw CAgentError("the module could not be restarted");
    }
}

void CScenario::ExecuteAll(const CRapidJsonUtil::value& lines) {
    for (const CRapidJsonUtil::value& line : lines.GetArray()) {
        Execute(line);
    }
}

void CScenario::Parallel(const CRapidJsonUtil::value& line) {
    const CRapidJsonUtil::value& threads = line["parallel"];
    if (!threads.IsArray()) {
        throw CAgentError("\"parallel\" is an array with an array of lines for each thread");
    }
    for (const CRapidJsonUtil::value& lines : threads.GetArray()) {
        if (!lines.IsArray()) {
            throw CAgentError("each thread of \"parallel\" is an array of lines");
        }
        for (const CRapidJsonUtil::value& inner : lines.GetArray()) {
            const Step* step = FindStep(inner);
            if (step->run == &CScenario::Parallel || step->run == &CScenario::Restart) {
                throw CAgentError(JsonString(step->name) + " does not go into \"parallel\"");
            }
        }
    }
    std::vector<std::exception_ptr> errors(threads.Size());
    {
        std::vector<std::jthread> running;
        for (rapidjson::SizeType i = 0; i < threads.Size(); ++i) {
            running.emplace_back([this, &lines = threads[i], &error = errors[i]] {
                try {
                    ExecuteAll(lines);
                } catch (...) {
                    error = std::current_exception();
                }
            });
        }
    }
    for (const std::exception_ptr& error : errors) {
        if (error) {
            std::rethrow_exception(error);
        }
    }
}
