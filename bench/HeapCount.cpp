// SPDX-License-Identifier: Apache-2.0
#include "bench/HeapCount.h"

#include <cstdlib>
#include <malloc.h>

namespace {

thread_local std::size_t allocations = 0;
thread_local std::ptrdiff_t bytes = 0;

constexpr std::ptrdiff_t kChunkHeader = 8;

std::ptrdiff_t BytesOf(void* memory) {
    return memory != nullptr ? static_cast<std::ptrdiff_t>(::malloc_usable_size(memory)) + kChunkHeader : 0;
}

void* Count(void* memory) {
    ++allocations;
    bytes += BytesOf(memory);
    return memory;
}

}  // namespace

// glibc's own functions, under the names that it keeps for programs which replace the common ones.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);

void* malloc(std::size_t size) {
    return Count(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return Count(__libc_calloc(count, size));
}

void* realloc(void* memory, std::size_t size) {
    bytes -= BytesOf(memory);
    return Count(__libc_realloc(memory, size));
}

void free(void* memory) {
    bytes -= BytesOf(memory);
    __libc_free(memory);
}
}

CHeapCount::CHeapCount() : allocations_(allocations), bytes_(bytes) {}

std::size_t CHeapCount::Allocations() const {
    return allocations - allocations_;
}

std::ptrdiff_t CHeapCount::Bytes() const {
    return bytes - bytes_;
}
