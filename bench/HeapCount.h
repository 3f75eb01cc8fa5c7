// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

/// What the calling thread has taken from the heap since this object was made: the program replaces malloc and its kin
/// by counting ones.
class CHeapCount {
public:
    CHeapCount();

    /// Calls of malloc, calloc, and of realloc where they get new memory.
    std::size_t Allocations() const;

    /// Bytes that were taken and not given back, as the heap hands them out: rounded up, with its own 8 bytes for each.
    std::ptrdiff_t Bytes() const;

private:
    std::size_t allocations_;
    std::ptrdiff_t bytes_;
};
