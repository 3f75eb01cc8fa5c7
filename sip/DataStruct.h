// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "sip/RapidJsonUtil.h"

/// A structured JSON value taken out of a message, with memory of its own: it outlives the message. Not to be
/// copied, as its pool cannot.
class CDataStruct {
public:
    using value = CRapidJsonUtil::value;

    CDataStruct() : pool_(kChunkBytes, CRapidJsonUtil::Heap()) {}

    /// Takes a copy of `from`, which must not be a part of this object, in place of what was held.
    /// @return false when values nested too deeply were left out (null in the copy)
    bool Set(const value& from);

    /// Null until something was taken.
    const value& Get() const { return value_; }

    /// CRapidJsonUtil::PrintPretty.
    static bool GetPrettyJson(std::string& out, const value& v, char indentChar, int indentCount) {
        return CRapidJsonUtil::PrintPretty(out, v, indentChar, indentCount);
    }

private:
    static constexpr std::size_t kChunkBytes = 992;  // 1 KiB on the heap

    CRapidJsonUtil::Allocator pool_;
    value value_;
};
