// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cstdint>

/// Addresses are traced with their low 32 bits.
inline unsigned int TraceId(const void* address) {
    return static_cast<unsigned int>(std::bit_cast<std::uintptr_t>(address));
}
