// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>
#include <type_traits>
#include <utility>

#include "sip/SipJson.h"

/// A command message by RapidJSON's means alone: a pool, a document in it, and what AddMember does. Nothing is checked,
/// names are not copied, and a copy has a smaller pool, as SipJson's has.
class CBareMessage {
public:
    using Document = std::remove_cvref_t<decltype(std::declval<SipJson>().GetDocument())>;
    using Value = SipJson::value;

    struct Command {
        unsigned int oc;
        unsigned int oe;
        unsigned int oi;
        unsigned int ca;
        unsigned int st;
        unsigned int da;
    };

    explicit CBareMessage(const Command& command) : pool_(kBuiltPool, CRapidJsonUtil::Heap()), document_(&pool_) {
        const auto name = [this](const char* text) { return Value(text, pool_); };
        Value members(rapidjson::kObjectType);
        members.AddMember(name("OC"), Value(command.oc), pool_)
            .AddMember(name("OE"), Value(command.oe), pool_)
            .AddMember(name("OI"), Value(command.oi), pool_)
            .AddMember(name("CA"), Value(command.ca), pool_)
            .AddMember(name("ST"), Value(command.st), pool_)
            .AddMember(name("DA"), Value(command.da), pool_);
        Value commands(rapidjson::kArrayType);
        commands.PushBack(members, pool_);
        Value envelope(rapidjson::kObjectType);
        envelope.AddMember(name("V"), Value(1), pool_).AddMember(name("CMD"), commands, pool_);
        document_.SetObject().AddMember(name("SIP"), envelope, pool_);
    }

    explicit CBareMessage(const Document& original) : pool_(kCopyPool, CRapidJsonUtil::Heap()), document_(&pool_) {
        document_.CopyFrom(original, pool_);  // with all strings: a parsed message has no constant ones
    }

private:
    static constexpr std::size_t kBuiltPool = 2016;
    static constexpr std::size_t kCopyPool = 992;

    CRapidJsonUtil::Allocator pool_;
    Document document_;
};

/// The status event that the rows work on: a component of cabinet 0 reports a warning.
inline SipJson StatusEvent() {
    constexpr std::string_view kText =
        R"({"SIP":{"V":1,"CMD":[{"OC":8994,"OE":3,"OI":17,"CA":0,"ST":255,"MI":4660,"DA":2}]}})";
    SipJson event;
    event.Parse(kText.data(), kText.size());
    return event;
}
