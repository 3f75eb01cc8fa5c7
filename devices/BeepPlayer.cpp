// SPDX-License-Identifier: Apache-2.0
#include "devices/BeepPlayer.h"

#include "devices/SpeakerBlock.h"
#include "devices/SystemSpeaker.h"

namespace {

constexpr std::size_t kShortestSequence = 8;   // bytes: frequency and length of one tone
constexpr unsigned int kInterval = 15000;      // ms
constexpr unsigned int kStopTimeout = 10000;   // ms; CThread waits on until the tone is over
constexpr unsigned long kThreadPriority = 63;  // tones keep their length on a busy machine

}  // namespace

CBeepPlayer::~CBeepPlayer() {
    Stop();
}

bool CBeepPlayer::Start(const std::vector<unsigned char>& sequence) {
    const CMutexLock lock(mutex_);
    StopLocked();
    if (sequence.size() < kShortestSequence || !isOpen_) {
        return false;
    }
    StopLocked();
    stopEvent_.Reset();
    SpeakerBlockOwner block = MakeSpeakerBlock(sequence, stopEvent_, SpeakerBlock::kEndless, kInterval);
    if (block == nullptr ||
        !thread_.Start(&CSystemSpeaker::RunAsThread_BeeperThread, block.get(), kThreadPriority, false, 0, 0, true)) {
        return false;
    }
    // The thread owns the block by now, and may have freed it.
    static_cast<void>(block.release());
    return true;
}

void CBeepPlayer::Stop() {
    const CMutexLock lock(mutex_);
    StopLocked();
}

void CBeepPlayer::Close() {
    const CMutexLock lock(mutex_);
    isOpen_ = false;
    StopLocked();
}

void CBeepPlayer::Open() {
    const CMutexLock lock(mutex_);
    isOpen_ = true;
}

void CBeepPlayer::StopLocked() {
    stopEvent_.Set();
    thread_.WaitForTermination(kStopTimeout);
}
