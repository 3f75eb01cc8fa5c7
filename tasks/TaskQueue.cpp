// SPDX-License-Identifier: Apache-2.0
#include "tasks/TaskQueue.h"

#include <bit>

bool CTaskQueue::Push(void* record) {
    const std::uint64_t count = count_.load(std::memory_order_relaxed);
    if (count + kSlot >= capacity_) {
        return false;
    }
    auto address = std::bit_cast<std::uint64_t>(record);
    for (std::uint64_t i = 0; i < kSlot; ++i, address >>= 8) {  // the capacity need not be a multiple of the slot
        buffer_[writePosition_] = static_cast<unsigned char>(address);
        writePosition_ = writePosition_ + 1 == capacity_ ? 0 : writePosition_ + 1;
    }
    count_.store(count + kSlot, std::memory_order_relaxed);
    return true;
}

void* CTaskQueue::Pop() {
    if (IsEmpty()) {
        return nullptr;
    }
    std::uint64_t address = 0;
    for (std::uint64_t i = 0; i < kSlot; ++i) {
        address |= std::uint64_t{buffer_[readPosition_]} << (8 * i);
        readPosition_ = readPosition_ + 1 == capacity_ ? 0 : readPosition_ + 1;
    }
    count_.store(count_.load(std::memory_order_relaxed) - kSlot, std::memory_order_relaxed);
    return std::bit_cast<void*>(address);
}

void CTaskQueue::Clear() {
    while (Pop() != nullptr) {
    }
}
