// SPDX-License-Identifier: Apache-2.0
#include "devices/SystemSpeaker.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <pthread.h>

#include "devices/DeviceBeeper.h"
#include "devices/SpeakerBlock.h"
#include "platform/Cancellation.h"
#include "platform/diagnostics/Trace.h"
#include "platform/threads/Event.h"

static_assert(std::endian::native == std::endian::little, "tones are read as they lie in memory");

void SpeakerBlockDeleter::operator()(SpeakerBlock* block) const noexcept {
    ::operator delete(block);
}

SpeakerBlockOwner MakeSpeakerBlock(const std::vector<unsigned char>& tones, CEvent& stopEvent,
                                   std::uint32_t repeatCount, std::uint32_t interval) noexcept {
    void* const memory = ::operator new(sizeof(SpeakerBlock) + tones.size(), std::nothrow);
    if (memory == nullptr) {
        return nullptr;
    }
    SpeakerBlockOwner block(new (memory) SpeakerBlock{tones.size(), &stopEvent, repeatCount, interval});
    std::ranges::copy(tones, static_cast<unsigned char*>(memory) + sizeof(SpeakerBlock));
    return block;
}

namespace {

constexpr std::size_t kNumber = sizeof(std::uint32_t);
constexpr std::size_t kPair = 2 * kNumber;    // frequency and length
constexpr std::size_t kRecord = 3 * kNumber;  // and pause

/// One beeper thread's way through its block.
class CSequence {
public:
    explicit CSequence(const SpeakerBlock& block) : block_(block), passes_(block.repeatCount) {}

    void Play() {
        do {
            if (passes_ != 0 && passes_ != SpeakerBlock::kEndless) {
                --passes_;
            }
        } while (PlayPass() && passes_ != 0 && WaitForNextPass());
    }

private:
    /// @return false when the event was signalled
    bool Wait(std::uint32_t milliseconds) const {
        return block_.stopEvent != nullptr && block_.stopEvent->Wait(milliseconds) == CEvent::kTimeout;
    }

    bool PlayPass() {
        for (std::size_t at = 0; block_.toneBytes - at >= kPair; at += kRecord) {
            if (!Wait(0)) {
                return false;
            }
            Sound(Number(at), Number(at + kNumber));
            if (!Wait(0)) {
                return false;
            }
            if (block_.toneBytes - at < kRecord) {
                break;
            }
            const std::uint32_t pause = Number(at + kPair);
            tookTime_ = tookTime_ || pause != 0;
            if (!Wait(pause)) {
                return false;
            }
        }
        return true;
    }

    void Sound(std::uint32_t hz, std::uint32_t milliseconds) {
        if (hz == 0) {
            EM_TRACE(1, "\nCSystemSpeaker      : ERROR! Tone of %u Hz left out!", hz);
            return;
        }
        tookTime_ = true;
        CDeviceBeeper::Beep(static_cast<int>(hz), static_cast<int>(milliseconds));
    }

    bool WaitForNextPass() const {
        if (block_.interval == 0) {
            return tookTime_ && Wait(0);
        }
        return Wait(block_.interval) && Wait(0);
    }

    std::uint32_t Number(std::size_t at) const {
        std::uint32_t number{};
        std::memcpy(&number, block_.Tones() + at, sizeof number);
        return number;
    }

    const SpeakerBlock& block_;
    std::uint32_t passes_;
    bool tookTime_{};
};

}  // namespace

void* CSystemSpeaker::RunAsThread_BeeperThread(void* parameter) {
    SpeakerBlockOwner block(static_cast<SpeakerBlock*>(parameter));
    try {
        if (block != nullptr) {
            CSequence(*block).Play();
        }
    } catch (const std::exception& exception) {
        EM_TRACE(1, "\nCSystemSpeaker      : ERROR! Exception: %s", exception.what());
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1, "\nCSystemSpeaker      : ERROR! Unknown exception");
    }
    block.reset();
    EM_TRACE(1, "THREAD_RETURN: ## INFO: Thread = 0x%08X exited, Return = 0x%08x##\n",
             static_cast<unsigned int>(::pthread_self()), 0U);
    return nullptr;
}
