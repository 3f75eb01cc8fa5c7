// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

class CEvent;

/// What a beeper thread is started with: this header and, right behind it, the tones, in one heap block that the thread
/// owns and frees.
///
/// The tones are records of three unsigned 32-bit numbers, low byte first: frequency in Hz, length in ms, pause after
/// the tone in ms. Any number of bytes is allowed. A record at the end that lacks its pause ends the pass after the
/// tone; one that lacks its length as well is not played.
struct SpeakerBlock {
    std::uint64_t toneBytes;
    CEvent* stopEvent;          // outlives the thread
    std::uint32_t repeatCount;  // passes; 0 plays one as well
    std::uint32_t interval;     // ms between two passes

    static constexpr std::uint32_t kEndless = 0xFFFFFFFF;

    const unsigned char* Tones() const { return reinterpret_cast<const unsigned char*>(this + 1); }
};

static_assert(std::is_standard_layout_v<SpeakerBlock> && std::is_trivially_copyable_v<SpeakerBlock>);
static_assert(offsetof(SpeakerBlock, toneBytes) == 0);
static_assert(offsetof(SpeakerBlock, stopEvent) == 8);
static_assert(offsetof(SpeakerBlock, repeatCount) == 16);
static_assert(offsetof(SpeakerBlock, interval) == 20);
static_assert(sizeof(SpeakerBlock) == 24);

struct SpeakerBlockDeleter {
    void operator()(SpeakerBlock* block) const noexcept;
};
using SpeakerBlockOwner = std::unique_ptr<SpeakerBlock, SpeakerBlockDeleter>;

/// @return null without memory
SpeakerBlockOwner MakeSpeakerBlock(const std::vector<unsigned char>& tones, CEvent& stopEvent,
                                   std::uint32_t repeatCount, std::uint32_t interval) noexcept;
