// SPDX-License-Identifier: Apache-2.0
#include "service/control/ControlCommands.h"

#include <algorithm>

#include "agent/settings/Settings.h"
#include "service/components/StatusJson.h"
#include "service/loop/Journal.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

namespace {

constexpr std::uint32_t kUnknownReport = 3;
constexpr std::size_t kLongestValue = 16384;
constexpr std::size_t kMostSet = 1000;
constexpr std::size_t kMostUnderWay = 1000;  // of 64 KiB each

const CRapidJsonUtil::value& Member(const CRapidJsonUtil::value& object, const char* key) {
    static const CRapidJsonUtil::value none;
    const CRapidJsonUtil::value* found =
        object.IsObject() ? CRapidJsonUtil::Find(object, rapidjson::StringRef(key)) : nullptr;
    return found != nullptr ? *found : none;
}

std::string TextOf(const CRapidJsonUtil::value& value, const char* what) {
    if (!value.IsString() || value.GetStringLength() == 0) {
        throw CAgentError(std::string(what) + " is a text that is not empty");
    }
    return {value.GetString(), value.GetStringLength()};
}

void RequireTrue(const CRapidJsonUtil::value& value, const char* what) {
    if (!value.IsTrue()) {
        throw CAgentError(std::string(what) + " is true");
    }
}

// A report of which some is left aside would be another one.
void RequireReport(const CRapidJsonUtil::value& value) {
    if (!value.IsObject()) {
        throw CAgentError("\"submit\" is an object");
    }
    for (const auto& [key, member] : value.GetObject()) {
        const std::string_view name(key.GetString(), key.GetStringLength());
        if (name != "name" && name != "status" && name != "text") {
            throw CAgentError("a report has no " + JsonString(name) + "; its members are name, status and text");
        }
        if (name == "text" && !member.IsString()) {
            throw CAgentError("\"text\" is a text");
        }
    }
}

// A request that only asks.
bool IsQuestion(std::string_view key, const CRapidJsonUtil::value& value) {
    const auto operation = ReadNumber(Member(value, "OC"));
    return key == "request" && (operation == kReadConfigurationValue || operation == kPendingAlert);
}

// For the journal: which component or setting. Not the data: passwords may be among them.
std::string WhatIsChanged(const CRapidJsonUtil::value& value) {
    const CRapidJsonUtil::value& name = Member(value, "name");
    if (name.IsString()) {
        constexpr std::size_t kShown = 200;
        return " " + FirstLine(std::string_view(name.GetString(), name.GetStringLength()).substr(0, kShown));
    }
    const auto id = ReadNumber(value.IsObject() ? Member(value, "OE") : value);
    for (const auto settings : {AlertSettings(), MailServerSettings()}) {
        const auto found = std::ranges::find_if(settings, [&](const OperatorSetting& one) { return one.id == id; });
        if (found != settings.end()) {
            return " " + std::string(found->name);
        }
    }
    return {};
}

// What is nested too deeply is refused here: the module's thread has nobody to tell.
Command ParseMessage(const CRapidJsonUtil::value& value) {
    Command command = ParseCommand(value);
    SipJson message;
    BuildMessage(command, message);
    return command;
}

}  // namespace

struct CControlCommands::Order {
    const char* key;
    void (CControlCommands::*run)(CControlClient& client, const Value& value);
    bool isChange;  // logged with who asked for it
};

const std::vector<CControlCommands::Order>& CControlCommands::Orders() {
    static const std::vector<Order> orders = {
        {"ask", &CControlCommands::Ask, false},
        {"acknowledge", &CControlCommands::Acknowledge, true},
        {"check", &CControlCommands::Check, false},
        {"submit", &CControlCommands::Submit, true},
        {"subscribe", &CControlCommands::Subscribe, false},
        {"request", &CControlCommands::Request, true},
        {"event", &CControlCommands::Deliver, true},
        {"notice", &CControlCommands::Deliver, true},
        {"notify", &CControlCommands::Notify, true},
        {"set", &CControlCommands::Set, true},
        {"reset", &CControlCommands::Reset, true},
    };
    return orders;
}

CControlCommands::CControlCommands(CLoop& loop, CService& service, const std::string& path)
    : service_(service),
      server_(loop, path, [this](CControlClient& client, const std::string& line) { OnLine(client, line); }) {}

void CControlCommands::OnLine(CControlClient& client, const std::string& line) {
    try {
        const CRapidJsonUtil::Document document = ParseJson(line);
        if (!document.IsObject() || document.MemberCount() != 1) {
            throw CAgentError("a line is an object with one member, which tells what is asked for");
        }
        for (const Order& order : Orders()) {
            const Value* value = CRapidJsonUtil::Find(document, rapidjson::StringRef(order.key));
            if (value == nullptr) {
                continue;
            }
            if (order.isChange && !IsQuestion(order.key, *value)) {
                Journal(6, client.Peer() + " at the control socket: " + order.key + WhatIsChanged(*value));
            }
            (this->*order.run)(client, *value);
            return;
        }
        client.SendError("this line asks for nothing that is known");
    } catch (const CAgentError& error) {
        client.SendError(error.what());
    }
}

void CControlCommands::Ask(CControlClient& client, const Value& value) {
    const std::string what = TextOf(value, "\"ask\"");
    if (what == "status") {
        client.Send("{\"kind\":\"status\",\"status\":" + service_.Status() + "}");
    } else if (what == "pending") {
        client.Send("{\"kind\":\"pending\",\"alerts\":" + service_.Pending() + "}");
    } else if (what == "settings") {
        std::string answers;
        for (const Command& answer : service_.Answers().All()) {
            if (answer.oc == kReadConfigurationValue && answer.oe && !answer.data.empty()) {
                answers += (answers.empty() ? "{\"OC\":" : ",{\"OC\":") + std::to_string(*answer.oc) +
                           ",\"OE\":" + std::to_string(*answer.oe) + ",\"DA\":" + answer.data + "}";
            }
        }
        client.Send("{\"kind\":\"settings\",\"answers\":[" + answers + "]}");
    } else if (what == "traces") {
        client.Send(std::string(R"({"kind":"traces","heard":)") + (service_.HearsModule() ? "true}" : "false}"));
    } else {
        client.SendError("\"ask\" is for \"status\", \"pending\", \"settings\" or \"traces\"");
    }
}

/// @throw CAgentError when too much is under way
void CControlCommands::Count() {
    if (underWay_ >= kMostUnderWay) {
        throw CAgentError("too much waits for the module already; try again later");
    }
    ++underWay_;
}

/// What the module's work, which is counted and owed from here on, calls in the loop when it is done.
/// @throw CAgentError as Count
template <typename Answer>
auto CControlCommands::Later(CControlClient& client, Answer answer) {
    Count();
    client.Owe();
    return [this, id = client.Id(), answer](const auto& result) {
        --underWay_;
        if (CControlClient* still = server_.Find(id)) {
            answer(*still, result);
            still->Settle();
        }
    };
}

void CControlCommands::Acknowledge(CControlClient& client, const Value& value) {
    RequireTrue(value, "\"acknowledge\"");
    service_.Acknowledge(Later(client, [](CControlClient& still, std::size_t alerts) {
        still.Send("{\"kind\":\"acknowledged\",\"alerts\":" + std::to_string(alerts) + "}");
    }));
}

void CControlCommands::Check(CControlClient& client, const Value& value) {
    const std::string name = TextOf(value, "\"check\"");
    const Component* component = service_.Components().Find(name);
    if (component == nullptr || component->config.command.empty()) {
        throw CAgentError("there is no check " + name);
    }
    news_.AwaitCheck(name, client);
    service_.CheckNow(name);
}

void CControlCommands::Submit(CControlClient& client, const Value& value) {
    RequireReport(value);
    const std::string name = TextOf(Member(value, "name"), "\"name\"");
    const auto status = ReadNumber(Member(value, "status"));
    if (!status || *status > kUnknownReport) {
        throw CAgentError("\"status\" is that of a plugin: 0 OK, 1 warning, 2 critical, 3 unknown");
    }
    if (!IsComponentName(name)) {
        throw CAgentError(std::string("\"name\" ") + kComponentNameRule);
    }
    const Value& text = Member(value, "text");
    const Component* component = service_.Submit(
        name, {.status = StatusOfExit(static_cast<int>(*status)),
               .text = FirstLine(text.IsString() ? std::string_view(text.GetString(), text.GetStringLength()) : "")});
    if (component == nullptr) {
        throw CAgentError("there are too many components already");
    }
    client.Send("{\"kind\":\"submitted\",\"component\":" + ComponentJson(*component) + "}");
}

void CControlCommands::Subscribe(CControlClient& client, const Value& value) {
    RequireTrue(value, "\"subscribe\"");
    client.isSubscribed = true;
    client.Send("{\"kind\":\"subscribed\"}");
}

void CControlCommands::Request(CControlClient& client, const Value& value) {
    const Command request = ParseMessage(value);
    const auto settle = Later(client, [](CControlClient& /*still*/, const Command& /*answer*/) {});
    news_.AwaitAnswer(client, request);
    service_.Ask([request](CDelivery& delivery, CAgent& agent) { return delivery.Request(agent, request); },
                 [this, id = client.Id(), request, settle](const Command& answer) {
                     news_.OnReturned(id, request, answer);
                     settle(answer);
                 });
}

/// Events and notices.
void CControlCommands::Deliver(CControlClient& client, const Value& value) {
    Command notice = ParseMessage(value);
    service_.Ask(
        [notice = std::move(notice)](CDelivery& delivery, CAgent& agent) {
            delivery.Notice(agent, notice);
            return notice;
        },
        Later(client, [](CControlClient& still, const Command& delivered) {
            still.SendMessage("delivered", MessageText(delivered));
        }));
}

void CControlCommands::Notify(CControlClient& client, const Value& value) {
    const auto code = ReadNumber(value);
    if (!code) {
        throw CAgentError("\"notify\" is a number");
    }
    service_.Ask(
        [code](CDelivery& /*delivery*/, CAgent& agent) {
            agent.Notify(*code);
            return Command();
        },
        Later(client,
              [](CControlClient& still, const Command& /*nothing*/) { still.Send("{\"kind\":\"notified\"}"); }));
}

/// What is set stays in memory, and a setting in the state.
void CControlCommands::RefuseTooMuch(Command answer) {
    if (answer.data.size() > kLongestValue) {
        throw CAgentError("\"DA\" has more than " + std::to_string(kLongestValue) + " bytes");
    }
    if (!CAlertAnswers::IsSetting(answer)) {
        answer.data.clear();
        answer.st.reset();
        const std::string asked = MessageText(answer);
        if (set_.size() >= kMostSet && !set_.contains(asked)) {
            throw CAgentError("answers to " + std::to_string(kMostSet) +
                              " questions are set already, besides settings");
        }
        set_.insert(asked);
    }
}

/// @throw CAgentError when a restart would undo what has just been set
void CControlCommands::RequireKept() const {
    if (!service_.IsStateSaved()) {
        throw CAgentError("it holds until the service ends: the state cannot be saved, and the journal tells why");
    }
}

void CControlCommands::Set(CControlClient& client, const Value& value) {
    const Command answer = ParseAnswer(value);
    if (answer.oc == kReadConfigurationValue && answer.data.empty()) {
        throw CAgentError(R"(a setting is set with "DA", its value; "reset" takes back what was set)");
    }
    RefuseTooMuch(answer);
    service_.ChangeSetting(answer);
    RequireKept();
    client.SendMessage("set", MessageText(answer));
}

void CControlCommands::Reset(CControlClient& client, const Value& value) {
    const auto id = ReadNumber(value);
    if (!id) {
        throw CAgentError("\"reset\" is the number of a configuration value");
    }
    Count();  // but not owed: its answer need not wait
    service_.ResetSetting(*id, [this] { --underWay_; });
    RequireKept();
    client.Send(R"({"kind":"reset"})");
}
