// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "sip/RapidJson.h"

/// What RapidJSON lacks: copies that own every string and are no larger than their content, and a bound on nesting.
///
/// RapidJSON recurses when it copies, prints and parses; a hostile text of a few thousand levels would end a small
/// stack. Everything here stops at `kMaxNesting` levels of objects and arrays. No state: any thread, as long as nobody
/// changes the values that are read and each allocator has one user at a time.
class CRapidJsonUtil {
public:
    using Allocator = rapidjson::MemoryPoolAllocator<CJsonHeap>;
    using value = rapidjson::GenericValue<rapidjson::UTF8<>, Allocator>;
    using Document = rapidjson::GenericDocument<rapidjson::UTF8<>, Allocator, CJsonHeap>;

    static constexpr int kMaxNesting = 64;

    /// The heap below all pools. Pools that are not given one allocate their own.
    static CJsonHeap* Heap();

    /// Copies `from` with all its strings into memory of `allocator`. `from` and `to` may overlap: `to` is replaced at
    /// the end.
    /// @return false when something was left out: values nested too deeply, and numbers that are not finite, become
    /// null
    static bool CopyValue(value& to, const value& from, Allocator& allocator);

    /// CopyValue for an object; false, with `to` unchanged, when `from` is none.
    static bool CopyObject(value& to, const value& from, Allocator& allocator);

    /// CopyValue for an array; false, with `to` unchanged, when `from` is none.
    static bool CopyArray(value& to, const value& from, Allocator& allocator);

    /// Reads one JSON text (UTF-8, nothing but white space behind it).
    /// @return false, with `to` unchanged, when the text is not valid or nested too deeply
    static bool Parse(value& to, const char* text, std::size_t length, Allocator& allocator);

    /// Writes `from` without white space.
    /// @return false, with `out` unchanged, when `from` is nested too deeply or holds a number that is not finite
    static bool Print(std::string& out, const value& from);

    /// Writes `from` over several lines. What cannot be printed appears as null.
    /// @param indentChar  blank, tab, line feed or carriage return; anything else counts as a blank
    /// @param indentCount  characters for each level, 0 to 16; values beyond count as the nearest of these
    /// @return false when something was left out
    static bool PrintPretty(std::string& out, const value& from, char indentChar, int indentCount);

    /// The first member with this name, null when there is none or `object` is not an object. A string literal as `key`
    /// brings its length along; for other strings use rapidjson::StringRef. Inlined, so that the length is a constant.
    [[gnu::always_inline]] static const value* Find(const value& object, const value::StringRefType& key) {
        if (!object.IsObject()) {
            return nullptr;
        }
        for (const auto& member : object.GetObject()) {
            if (IsText(member.name, key)) {
                return &member.value;
            }
        }
        return nullptr;
    }
    [[gnu::always_inline]] static value* Find(value& object, const value::StringRefType& key) {
        return const_cast<value*>(Find(const_cast<const value&>(object), key));
    }

    /// Compares from the back: the names of a command's members differ in their last characters, and are so short that
    /// this is done before a call of memcmp is.
    [[gnu::always_inline]] static bool IsText(const value& text, const value::StringRefType& wanted) {
        std::size_t rest = text.GetStringLength();
        if (rest != wanted.length) {
            return false;
        }
        for (const char* const characters = text.GetString(); rest > 0; --rest) {
            if (characters[rest - 1] != wanted.s[rest - 1]) {
                return false;
            }
        }
        return true;
    }
};
