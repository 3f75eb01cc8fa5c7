#pragma once

// The only place that includes RapidJSON: all parts of a program must see the same assertion, or the linker would mix
// functions that throw with functions that abort.

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
