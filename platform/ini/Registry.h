// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ini/RegistryText.h"

/// A tree of keys and values that is kept in a directory, so that a kill or a loss of power at any moment leaves it
/// readable.
///
/// | File               | Holds |
/// |---|---|
/// | `registry`         | the state |
/// | `registry.old`     | the state before the last save |
/// | `registry.new`     | the state while it is written; a whole one is left only by a save that was cut off |
/// | `registry.default` | what holds where the state has no value; never written by this class |
/// | `registry.damaged` | the last `registry` that could not be read, kept aside by Save |
///
/// A file is lines that end in a line feed: "key=value", ascending, and at last "end " and 16 hexadecimal digits, the
/// FNV-1a sum (64 bits) of all bytes before that line: no file is taken for whole without it. In a key and a
/// value stand `\n`, `\r`, `\0`, `\\`, `\e`, `\h` for line feed, carriage return, zero, backslash, "=" and "#"; all
/// other bytes for themselves. Empty lines and lines that begin with "#" are passed over. `registry.default`, which
/// people write, may lack the last line. A file beyond 16 MiB, or with any line of another form, counts as damaged,
/// like one that cannot be read.
///
/// A key is the way to it, as in "alerts/pending/fan1": parts of any bytes, none empty, with "/" between them, of 1 KiB
/// together at most. A key may have a value and children. No relation between keys is kept but their names.
///
/// An object is used on one thread at a time (const functions on several at once). One process at a time may save in a
/// directory, others may load from it at any moment.
class CRegistry {
public:
    enum class ESource {
        Nothing,  ///< no state was found: only the defaults hold
        Current,
        New,
        Old,
    };

    struct CLoaded {
        ESource source = ESource::Nothing;
        /// For people: which file is damaged or missing, why, and what is used in its place; empty when all is well. A
        /// save that was cut off and a directory without any registry are well.
        std::string problem;
    };

    explicit CRegistry(std::string directory = "/etc/nodeward");

    /// Reads state and defaults; what the object held is forgotten. The state is the first whole one of `registry`,
    /// `registry.new` and `registry.old`. A problem is traced at level 1 too.
    CLoaded Load();

    /// Writes the state: `registry.new` with mode 0600, synced; the present `registry` becomes `registry.old`, the new
    /// one takes its place, and the directory is synced. A `registry` that is not whole becomes `registry.damaged`
    /// instead (a still older one of that name is replaced), and a whole `registry.new` takes its place first.
    /// @return 0, else an errno value: EFBIG for a state beyond 16 MiB. The files then load as before or, when only the
    ///         last sync failed, as saved. Traced at level 1.
    int Save() const;

    /// The value of the state, else the default.
    /// @return nothing when there is neither
    std::optional<std::string> Get(std::string_view key) const;

    /// A whole number in decimal digits, with "-" in front when below zero, and nothing else.
    /// @return `fallback` for a missing value, any other text and what needs more than 64 bits
    std::int64_t GetNumber(std::string_view key, std::int64_t fallback) const;

    /// @return `fallback` for a missing value and any text but "true" and "false"
    bool GetBool(std::string_view key, bool fallback) const;

    /// Changes the state; Save makes it last.
    /// @param value  any bytes
    /// @return false, with nothing changed, when `key` is none
    bool Set(std::string_view key, std::string_view value);
    bool SetNumber(std::string_view key, std::int64_t value);
    bool SetBool(std::string_view key, bool value);

    /// Removes a key and all below it from the state: the defaults hold again, where there are any.
    /// @return false when the state had none of them
    bool Remove(std::string_view key);

    /// The names of a key's direct children (of the roots for ""), in state and defaults, ascending, each once.
    std::vector<std::string> Children(std::string_view key) const;

private:
    std::string directory_;  // with a "/" at its end
    CRegistryValues values_;
    CRegistryValues defaults_;
};
