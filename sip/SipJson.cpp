// SPDX-License-Identifier: Apache-2.0
#include "sip/SipJson.h"

#include <cstring>

#include "sip/CommandData.h"
#include "sip/DataStruct.h"
#include "sip/ValueBuilder.h"

namespace {

using value = SipJson::value;

constexpr std::size_t kFurtherChunk = 992;  // 1 KiB on the heap, with its headers
constexpr std::size_t kParseChunk = 16384;
constexpr std::size_t kParseStack = 128;

/// The highest command index for which GetCmd creates elements: a guard against an index out of thin air.
constexpr int kMaxCreatedIndex = 65535;

constexpr unsigned kNoStatus = 0xFFFFFFFF;

bool SendFreshEnvelope(CValueBuilder& builder) {
    builder.StartObject();
    builder.Key("V", 1, true);
    builder.Uint(1);
    builder.Key("CMD", 3, true);
    builder.StartArray();
    builder.EndArray(0);
    return builder.EndObject(2);
}

bool SendFreshDocument(CValueBuilder& builder) {
    builder.StartObject();
    builder.Key("SIP", 3, true);
    SendFreshEnvelope(builder);
    return builder.EndObject(1);
}

/// Removes the members of this name from number `first` on, in one go: a hostile object may have a million of them.
void RemoveMembers(value& object, const value::StringRefType& key, rapidjson::SizeType first) {
    auto kept = object.MemberBegin() + first;
    for (auto member = kept; member < object.MemberEnd(); ++member) {
        if (!CRapidJsonUtil::IsText(member->name, key)) {
            member->name.Swap(kept->name);
            member->value.Swap(kept->value);
            ++kept;
        }
    }
    if (kept < object.MemberEnd()) {
        object.EraseMember(kept, object.MemberEnd());
    }
}

}  // namespace

SipJson::SipJson(WithoutDocument /*tag*/)
    : pool_(ownMemory_, sizeof ownMemory_, kFurtherChunk, CRapidJsonUtil::Heap()),
      document_(&pool_, kParseStack, CRapidJsonUtil::Heap()) {}

SipJson::SipJson() : SipJson(WithoutDocument()) {
    JsonInit();
}

SipJson::SipJson(const SipJson& other) : SipJson(WithoutDocument()) {
    *this = other;
}

SipJson& SipJson::operator=(const SipJson& other) {
    if (this != &other) {
        Empty();
        CRapidJsonUtil::CopyValue(document_, other.document_, pool_);
        cmdIndex_ = other.cmdIndex_;
        context_ = 0;
    }
    return *this;
}

/// Nothing may be left that points into memory which goes.
void SipJson::Empty() {
    document_.SetNull();
    pool_.Clear();
}

void SipJson::JsonInit() {
    Empty();
    BuildValue(document_, pool_, SendFreshDocument);
}

bool SipJson::Parse(const char* text, std::size_t length) {
    CRapidJsonUtil::Allocator pool(kParseChunk, CRapidJsonUtil::Heap());
    value parsed;
    if (!CRapidJsonUtil::Parse(parsed, text, length, pool)) {
        return false;
    }
    Empty();
    CRapidJsonUtil::CopyValue(document_, parsed, pool_);
    return true;
}

bool SipJson::GetJson(std::string& out) const {
    return CRapidJsonUtil::Print(out, document_);
}

const value* SipJson::FindCmd(int i) const {
    const value* sip = CRapidJsonUtil::Find(document_, "SIP");
    const value* commands = sip != nullptr ? CRapidJsonUtil::Find(*sip, "CMD") : nullptr;
    if (commands == nullptr || !commands->IsArray() || i < 0 || static_cast<unsigned>(i) >= commands->Size()) {
        return nullptr;
    }
    return &(*commands)[static_cast<unsigned>(i)];
}

const value* SipJson::FindMember(int i, const char* key) const {
    const value* cmd = key != nullptr ? FindCmd(i) : nullptr;
    return cmd != nullptr ? CRapidJsonUtil::Find(*cmd, rapidjson::StringRef(key)) : nullptr;
}

const value* SipJson::FindData(int i) const {
    const value* cmd = FindCmd(i);
    return cmd != nullptr ? CRapidJsonUtil::Find(*cmd, "DA") : nullptr;
}

value& SipJson::Commands() {
    if (!document_.IsObject()) {
        BuildValue(document_, pool_, SendFreshDocument);  // the pool stays: it may hold what is about to be set
    }
    value* sip = CRapidJsonUtil::Find(document_, "SIP");
    if (sip == nullptr || !sip->IsObject()) {
        value envelope;
        BuildValue(envelope, pool_, SendFreshEnvelope);
        SetMember(document_, "SIP", std::move(envelope));
        sip = CRapidJsonUtil::Find(document_, "SIP");
    }
    value* commands = CRapidJsonUtil::Find(*sip, "CMD");
    if (commands == nullptr || !commands->IsArray()) {
        SetMember(*sip, "CMD", value(rapidjson::kArrayType));
        commands = CRapidJsonUtil::Find(*sip, "CMD");
    }
    return *commands;
}

value& SipJson::GetCmd() {
    if (const value* existing = FindCmd(cmdIndex_)) {
        return const_cast<value&>(*existing);
    }
    if (cmdIndex_ < 0 || cmdIndex_ > kMaxCreatedIndex) {
        return nowhere_.SetNull();
    }
    const auto index = static_cast<unsigned>(cmdIndex_);
    value& commands = Commands();
    if (commands.Capacity() == 0) {
        commands.Reserve(index + 1, pool_);  // most messages have one command; the default is room for 16
    }
    while (commands.Size() <= index) {
        commands.PushBack(value(rapidjson::kObjectType), pool_);
    }
    return commands[index];
}

void SipJson::SetMember(value& object, const value::StringRefType& key, value&& v) {
    for (auto member = object.MemberBegin(); member < object.MemberEnd(); ++member) {
        if (CRapidJsonUtil::IsText(member->name, key)) {
            member->value = v;
            RemoveMembers(object, key, static_cast<rapidjson::SizeType>(member - object.MemberBegin()) + 1);
            return;
        }
    }
    // A short name costs no memory of its own, and a message must not point into a library that may be unloaded.
    object.AddMember(value(key, pool_), v, pool_);
}

void SipJson::SetCmd(value& cmd, unsigned oc, unsigned oe, unsigned oi, unsigned ca, unsigned st) {
    cmd.SetObject();
    // All are made before the first is added: a value that is copied right after it was made, in parts, keeps the
    // processor waiting.
    value names[] = {value("OC", pool_), value("OE", pool_), value("OI", pool_), value("CA", pool_),
                     value("ST", pool_)};
    value numbers[] = {value(oc), value(oe), value(oi), value(ca), value(st)};
    const bool isThere[] = {true, oe != 0, oi != 0, true, st != kNoStatus};
    for (std::size_t i = 0; i < std::size(names); ++i) {
        if (isThere[i]) {
            cmd.AddMember(names[i], numbers[i], pool_);
        }
    }
}

bool SipJson::SetCmdElemValue(value& elem, const char* key, unsigned v, bool omitZero) {
    if (!elem.IsObject() || key == nullptr) {
        return false;
    }
    if (v == 0 && omitZero) {
        RemoveMembers(elem, rapidjson::StringRef(key), 0);
    } else {
        SetMember(elem, rapidjson::StringRef(key), value(v));
    }
    return true;
}

bool SipJson::SetStatus(unsigned st) {
    return SetCmdElemValue(GetCmd(), "ST", st, false);
}

unsigned SipJson::GetCmdElemValue(int i, const char* key, unsigned def) const {
    const value* member = FindMember(i, key);
    if (member != nullptr && member->IsNumber()) {
        return static_cast<unsigned>(CCommandData::NumberBits(*member));
    }
    return member != nullptr && member->IsString() ? static_cast<unsigned>(CCommandData::TextBits(*member)) : def;
}

bool SipJson::HasCmdElem(int i, const char* key) const {
    return FindMember(i, key) != nullptr;
}

rapidjson::Type SipJson::GetCmdDataType(int i) const {
    const value* data = FindData(i);
    return data != nullptr ? data->GetType() : rapidjson::kNullType;
}

unsigned SipJson::GetCmdDataSize(int i) const {
    return CCommandData(FindData(i)).Size();
}

bool SipJson::GetCmdUIntData(int i, unsigned& out) const {
    return CCommandData(FindData(i)).ToUInt(out);
}

bool SipJson::SetCmdUIntData(value& elem, unsigned v) {
    return SetCmdElemValue(elem, "DA", v, false);
}

bool SipJson::GetCmdDataString(int i, std::string& out, unsigned long max) const {
    return CCommandData(FindData(i)).ToText(out, max);
}

bool SipJson::GetCmdDataStream(int i, std::vector<unsigned char>& out) const {
    return CCommandData(FindData(i)).ToBytes(out);
}

bool SipJson::HasReplyData() const {
    return GetCmdDataType(cmdIndex_) != rapidjson::kNullType;
}

bool SipJson::HasDataStruct() const {
    return CCommandData(FindData(cmdIndex_)).IsStruct();
}

bool SipJson::GetCmdDataStruct(int i, CDataStruct& out) const {
    const value* data = FindData(i);
    if (!CCommandData(data).IsStruct()) {
        return false;
    }
    out.Set(*data);
    return true;
}

void SipJson::SetData(value&& data, unsigned st) {
    value& cmd = GetCmd();
    if (cmd.IsObject()) {
        SetMember(cmd, "DA", std::move(data));
        SetMember(cmd, "ST", value(st));
    }
}

void SipJson::SetDataUIntValue(unsigned v, unsigned st) {
    SetData(value(v), st);
}

void SipJson::SetDataIntValue(int v, unsigned st) {
    SetData(value(v), st);
}

void SipJson::SetDataByte(unsigned char b, unsigned st) {
    SetDataUIntValue(b, st);
}

void SipJson::SetReplyDataString(const char* s, unsigned st) {
    SetData(value(s != nullptr ? s : "", pool_), st);
}

void SipJson::SetDataStream(const unsigned char* bytes, std::size_t size, unsigned st) {
    value data;
    BuildValue(data, pool_, [&](CValueBuilder& builder) {
        const auto count = static_cast<rapidjson::SizeType>(bytes != nullptr ? size : 0);
        builder.StartObject();
        builder.Key("RAW", 3, true);
        builder.StartArray();
        for (rapidjson::SizeType i = 0; i < count; ++i) {
            builder.Uint(bytes[i]);
        }
        builder.EndArray(count);
        return builder.EndObject(1);
    });
    SetData(std::move(data), st);
}
