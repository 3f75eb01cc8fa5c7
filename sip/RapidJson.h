// SPDX-License-Identifier: Apache-2.0
#pragma once

// The only place that includes RapidJSON: all parts of a program must see the same assertion, or the linker would mix
// functions that throw with functions that abort.

#include <cstddef>
#include <cstring>
#include <new>
#include <stdexcept>

/// A slip in the use of RapidJSON, such as a typed access without a check of the type. It is a net below code that
/// checks: RapidJSON's own assertion would abort the host process.
class CRapidJsonError : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

#if defined(RAPIDJSON_ASSERT) || defined(RAPIDJSON_RAPIDJSON_H_)
#error "include sip/RapidJson.h instead of RapidJSON's own headers"
#endif
#define RAPIDJSON_ASSERT(condition) \
    (static_cast<bool>(condition) ? static_cast<void>(0) : throw CRapidJsonError("RapidJSON: " #condition))

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/writer.h>

/// The heap below all JSON values. RapidJSON writes to what its allocator returns without a look at it, so memory that
/// cannot be had is an exception here (std::bad_alloc) and no null pointer. No state.
class CJsonHeap {
public:
    static constexpr bool kNeedFree = true;

    static void* Malloc(std::size_t size) { return size != 0 ? ::operator new(size) : nullptr; }
    static void* Realloc(void* old, std::size_t oldSize, std::size_t newSize) {
        void* const changed = Malloc(newSize);
        if (old != nullptr && changed != nullptr) {
            std::memcpy(changed, old, oldSize < newSize ? oldSize : newSize);
        }
        Free(old);
        return changed;
    }
    static void Free(void* memory) { ::operator delete(memory); }
};
