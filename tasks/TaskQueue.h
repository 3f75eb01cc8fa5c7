// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

/// The tasks that wait at one level: a ring of bytes in which each takes the 8 bytes of its record's address. Owns no
/// record. Changed under its user's lock.
class CTaskQueue {
public:
    /// @param capacity  bytes; one slot of 8 always stays empty, so 800 bytes hold 99 tasks
    explicit CTaskQueue(std::uint64_t capacity)
        : buffer_(std::make_unique<unsigned char[]>(capacity)), capacity_(capacity) {}

    /// @return false, leaving the queue as it is, when it is full
    bool Push(void* record);

    /// @return the oldest record, null when there is none
    void* Pop();

    /// Forgets all records.
    void Clear();

    /// May be asked without the lock: a hint only, unless the caller alone changes the queue.
    bool IsEmpty() const { return count_.load(std::memory_order_relaxed) < kSlot; }

private:
    static constexpr std::uint64_t kSlot = 8;
    static_assert(sizeof(void*) == kSlot);

    std::atomic<std::uint64_t> count_{0};  // bytes
    std::uint64_t readPosition_ = 0;
    std::uint64_t writePosition_ = 0;
    const std::unique_ptr<unsigned char[]> buffer_;
    const std::uint64_t capacity_;
};
