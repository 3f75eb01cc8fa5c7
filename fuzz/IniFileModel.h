// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

/// An INI file as somebody reads it who takes one line after the other into a list, and edits it there. It shares no
/// code with platform/, which works on offsets: IniFileFuzz.cpp holds the two against each other, byte for byte.
class CIniModel {
public:
    explicit CIniModel(const std::string& text);

    std::string Text() const;
    std::vector<std::string> Sections() const;
    std::vector<std::string> Keys(const std::string& section) const;
    std::optional<std::string> Value(const std::string& section, const std::string& key) const;

    /// @param key, value  null to delete the section, or the key
    /// @return false, and nothing changes, for a text with a line break
    bool Write(const std::string& section, const char* key, const char* value);
    bool Copy(const std::string& from, const std::string& to);

    /// What a buffer of `size` bytes holds of a value, and how much counts, as "count:bytes".
    static std::string InBuffer(const std::string& value, std::size_t size);
    static std::string InBuffer(const std::vector<std::string>& names, std::size_t size);

private:
    struct Line {
        std::string bytes;  // with the newline
        enum { Nothing, Header, Entry, Other } kind = Nothing;
        std::string name;  // of the section, or the key
        std::string value;
    };

    static Line Understand(const std::string& bytes);
    /// The lines behind the header, up to the next one.
    bool Find(const std::string& section, std::size_t& first, std::size_t& end) const;
    void Insert(std::size_t at, const std::string& bytes);

    std::string mark_;  // the byte order mark
    std::vector<Line> lines_;
};
