// SPDX-License-Identifier: Apache-2.0
// The memory of a program whose tests let it end ("operator new").
#include <cstdlib>
#include <new>

#include "support/FailingCall.h"

void* operator new(std::size_t size, const std::nothrow_t& /*nothrow*/) noexcept {
    return Fails("operator new") ? nullptr : std::malloc(size);
}

void* operator new(std::size_t size) {
    void* const memory = ::operator new(size, std::nothrow);
    return memory == nullptr ? throw std::bad_alloc() : memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
