// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "sip/RapidJsonUtil.h"

/// Collects parser or writer events into a value. Unlike AddMember, which starts every object with room for 16 members
/// (512 bytes), it gives objects and arrays exactly the size they need. Containers nested too deeply are refused, which
/// ends the recursion of whoever sends the events.
class CValueBuilder
    : public rapidjson::GenericDocument<rapidjson::UTF8<>, CRapidJsonUtil::Allocator, CRapidJsonUtil::Allocator> {
public:
    using Document =
        rapidjson::GenericDocument<rapidjson::UTF8<>, CRapidJsonUtil::Allocator, CRapidJsonUtil::Allocator>;
    using Document::Document;

    bool StartObject() { return Enter() && Document::StartObject(); }
    bool EndObject(rapidjson::SizeType members) { return Leave() && Document::EndObject(members); }
    bool StartArray() { return Enter() && Document::StartArray(); }
    bool EndArray(rapidjson::SizeType elements) { return Leave() && Document::EndArray(elements); }

private:
    bool Enter() { return ++level_ <= CRapidJsonUtil::kMaxNesting; }
    bool Leave() { return --level_ >= 0; }

    int level_ = 0;
};

/// Replaces `to` by the value whose events `generate(Builder&)` sends, made in memory of `allocator`.
/// @return what `generate` returned; on false `to` is unchanged
template <typename Builder = CValueBuilder, typename Generate>
bool BuildValue(CRapidJsonUtil::value& to, CRapidJsonUtil::Allocator& allocator, Generate generate) {
    // Pending values wait on this stack of 16 bytes each; only large messages go on to the heap.
    constexpr std::size_t kStackBytes = 1536;
    constexpr std::size_t kHeapChunk = 8192;
    alignas(std::max_align_t) char scratch[kStackBytes + 64];
    CRapidJsonUtil::Allocator stack(scratch, sizeof(scratch), kHeapChunk, CRapidJsonUtil::Heap());
    Builder builder(&allocator, kStackBytes, &stack);
    bool built{};
    auto collect = [&](CValueBuilder::Document& /*same as builder*/) { return built = generate(builder); };
    builder.Populate(collect);
    if (built) {
        to = static_cast<CRapidJsonUtil::value&>(builder);
    }
    return built;
}
