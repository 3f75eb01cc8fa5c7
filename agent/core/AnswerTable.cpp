// SPDX-License-Identifier: Apache-2.0
#include "agent/core/AnswerTable.h"

#include <algorithm>

#include "sip/RapidJsonUtil.h"

namespace {

constexpr std::uint32_t kNotHandled = 1;

// The part of an answer that a request is compared with.
Command Pattern(const Command& answer) {
    return {.oc = answer.oc, .oe = answer.oe, .oi = answer.oi, .ca = answer.ca, .st = {}, .mi = {}, .data = {}};
}

std::vector<Command> ParseAnswers(rapidjson::MemoryStream& stream) {
    std::vector<Command> answers;
    rapidjson::SkipWhitespace(stream);
    if (stream.Peek() != '[') {
        throw CAgentError("the state is an array of answers");
    }
    stream.Take();
    rapidjson::SkipWhitespace(stream);
    for (bool more = stream.Peek() != ']'; more;) {
        answers.push_back(ParseAnswer(ParseNextValue(stream)));
        rapidjson::SkipWhitespace(stream);
        more = stream.Peek() == ',';
        if (more) {
            stream.Take();
        } else if (stream.Peek() != ']') {
            throw CAgentError("a comma or the end of the array is missing");
        }
    }
    stream.Take();
    rapidjson::SkipWhitespace(stream);
    if (stream.Tell() < stream.size_) {
        throw CAgentError("something follows the end of the array");
    }
    return answers;
}

}  // namespace

Command ParseAnswer(const CRapidJsonUtil::value& object) {
    Command answer = ParseCommand(object);
    if (!answer.oc) {
        throw CAgentError("an answer needs \"OC\", the operation code that it answers");
    }
    if (answer.mi) {
        throw CAgentError("an answer has no \"MI\"");
    }
    return answer;
}

void CAnswerTable::Load(std::string_view text) {
    const auto refuse = [text](std::size_t at, const std::string& why) {
        const auto line = 1 + std::ranges::count(text.substr(0, at), '\n');
        throw CAgentError("line " + std::to_string(line) + ": " + why);
    };
    if (const std::size_t at = TooDeepAt(text); at != std::string_view::npos) {
        refuse(at, TooDeepText());
    }
    rapidjson::MemoryStream stream(text.data(), text.size());
    std::vector<Command> answers;
    try {
        answers = ParseAnswers(stream);
    } catch (const CAgentError& error) {
        refuse(stream.Tell(), error.what());
    }
    const std::lock_guard guard(lock_);
    answers_ = std::move(answers);
}

void CAnswerTable::Set(const Command& answer) {
    const std::lock_guard guard(lock_);
    const auto same = std::ranges::find_if(answers_, [&](const Command& other) {
        return std::ranges::all_of(CommandMembers(), [&](const CommandMember& member) {
            return member.value == &Command::st || answer.*member.value == other.*member.value;
        });
    });
    if (same != answers_.end()) {
        *same = answer;
    } else {
        answers_.insert(answers_.begin(), answer);
    }
}

std::vector<Command> CAnswerTable::All() const {
    const std::lock_guard guard(lock_);
    return answers_;
}

Command CAnswerTable::Find(const Command& request) const {
    const std::lock_guard guard(lock_);
    for (const Command& answer : answers_) {
        if (Matches(Pattern(answer), request)) {
            return answer;
        }
    }
    return {.oc = {}, .oe = {}, .oi = {}, .ca = {}, .st = kNotHandled, .mi = {}, .data = {}};
}

Answered CAnswerTable::Answer(std::string_view message, int index) const {
    CRapidJsonUtil::Document document = ParseJson(message);
    CRapidJsonUtil::value* command = FindCommand(document, index);
    if (command == nullptr) {
        return {.text = std::string(message), .asked = {}, .given = {}};
    }
    Answered answered = {.text = {}, .asked = CurrentCommand(document, index), .given = {}};
    const Command answer = Find(answered.asked);
    answered.given = answered.asked;
    answered.given.st = answer.st.value_or(0);
    answered.given.data = answer.data;
    auto& allocator = document.GetAllocator();
    for (const char* key : {"ST", "DA"}) {
        while (command->RemoveMember(key)) {
        }
    }
    command->AddMember("ST", answer.st.value_or(0), allocator);
    CRapidJsonUtil::Document data(&allocator);
    if (!answer.data.empty()) {
        data.Parse(answer.data.data(), answer.data.size());
        command->AddMember("DA", data, allocator);
    }
    answered.text = JsonText(document);
    return answered;
}
