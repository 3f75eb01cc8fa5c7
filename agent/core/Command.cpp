// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Command.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "sip/SipJson.h"

namespace {

constexpr std::array<CommandMember, 6> kMembers = {{{.key = "OC", .value = &Command::oc},
                                                    {.key = "OE", .value = &Command::oe},
                                                    {.key = "OI", .value = &Command::oi},
                                                    {.key = "CA", .value = &Command::ca},
                                                    {.key = "ST", .value = &Command::st},
                                                    {.key = "MI", .value = &Command::mi}}};

}  // namespace

std::span<const CommandMember> CommandMembers() {
    return kMembers;
}

CRapidJsonUtil::value* FindCommand(CRapidJsonUtil::value& message, int index) {
    CRapidJsonUtil::value* envelope = CRapidJsonUtil::Find(message, "SIP");
    CRapidJsonUtil::value* commands = envelope != nullptr ? CRapidJsonUtil::Find(*envelope, "CMD") : nullptr;
    if (commands == nullptr || !commands->IsArray() || index < 0 ||
        static_cast<rapidjson::SizeType>(index) >= commands->Size()) {
        return nullptr;
    }
    CRapidJsonUtil::value& command = (*commands)[static_cast<rapidjson::SizeType>(index)];
    return command.IsObject() ? &command : nullptr;
}

std::optional<std::uint32_t> ParseNumber(std::string_view text) {
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    } else if (text.size() > 1 && text.starts_with('0')) {
        base = 8;
    }
    std::uint32_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<std::uint32_t> ReadNumber(const CRapidJsonUtil::value& value) {
    if (value.IsUint()) {
        return value.GetUint();
    }
    if (value.IsString()) {
        return ParseNumber({value.GetString(), value.GetStringLength()});
    }
    return std::nullopt;
}

Command ParseCommand(const CRapidJsonUtil::value& object) {
    if (!object.IsObject()) {
        throw CAgentError(R"(a command is an object such as {"OC":"0x2240"})");
    }
    Command command;
    for (const auto& [name, value] : object.GetObject()) {
        const std::string_view key(name.GetString(), name.GetStringLength());
        if (key == "DA") {
            command.data = JsonText(value);
            continue;
        }
        const auto* member = std::ranges::find_if(kMembers, [&](const CommandMember& m) { return key == m.key; });
        if (member == kMembers.end()) {
            throw CAgentError("a command has no " + JsonString(key) +
                              "; its members are OC, OE, OI, CA, ST, MI and DA");
        }
        command.*member->value = ReadNumber(value);
        if (!(command.*member->value)) {
            throw CAgentError(JsonString(key) + " is a number from 0 to 4294967295, or a text such as \"0x2240\"");
        }
    }
    return command;
}

Command CurrentCommand(std::string_view message, int index) {
    CRapidJsonUtil::Document document = ParseJson(message);
    return CurrentCommand(document, index);
}

Command CurrentCommand(CRapidJsonUtil::value& message, int index) {
    Command command;
    const CRapidJsonUtil::value* element = FindCommand(message, index);
    if (element == nullptr) {
        return command;
    }
    for (const auto& [key, value] : kMembers) {
        if (const CRapidJsonUtil::value* found = CRapidJsonUtil::Find(*element, rapidjson::StringRef(key))) {
            command.*value = ReadNumber(*found);
        }
    }
    if (const CRapidJsonUtil::value* data = CRapidJsonUtil::Find(*element, "DA")) {
        command.data = JsonText(*data);
    }
    return command;
}

Command MakeCommand(std::uint32_t operation, std::uint32_t extension, std::string data) {
    Command command;
    command.oc = operation;
    command.oe = extension;
    command.data = std::move(data);
    return command;
}

Command MakeObjectCommand(std::uint32_t operation, std::uint32_t object, std::string data) {
    Command command;
    command.oc = operation;
    if (object != 0) {
        command.oi = object;
    }
    command.data = std::move(data);
    return command;
}

void BuildMessage(const Command& command, SipJson& message) {
    const std::string text = MessageText(command);
    if (!message.Parse(text.data(), text.size())) {
        throw CAgentError("the message is nested too deeply, or holds what is no character");
    }
}

std::string MessageText(const Command& command) {
    std::string members;
    const auto add = [&](const char* key, const std::string& value) {
        members += (members.empty() ? "\"" : ",\"") + std::string(key) + "\":" + value;
    };
    for (const auto& [key, value] : kMembers) {
        if (command.*value) {
            add(key, std::to_string(*(command.*value)));
        }
    }
    if (!command.data.empty()) {
        add("DA", command.data);
    }
    return R"({"SIP":{"V":1,"CMD":[{)" + members + "}]}}";
}

std::string MessageText(const SipJson& message) {
    std::string text;
    return message.GetJson(text) ? text : "null";
}

bool Matches(const Command& pattern, const Command& command) {
    const bool numbersMatch = std::ranges::all_of(kMembers, [&](const CommandMember& member) {
        const auto& wanted = pattern.*member.value;
        const auto& found = command.*member.value;
        const bool zeroWhenAbsent = member.value != &Command::oc && member.value != &Command::st;
        return !wanted || found == wanted || (!found && zeroWhenAbsent && *wanted == 0);
    });
    return numbersMatch && (pattern.data.empty() || pattern.data == command.data);
}
