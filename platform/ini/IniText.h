// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>

/// One line of an INI text, taken apart only as far as somebody asks. The views point into the text.
class CIniLine {
public:
    /// Which ";" starts a comment.
    enum class Comment {
        Anywhere,
        BehindBlank,  ///< for a value that is a list, also one before any item: others separate the items
    };

    std::size_t begin{};    // offset of the line in the text
    std::size_t end{};      // offset behind its newline
    std::string_view text;  // the line without blanks in front

    /// @return the name between the brackets of a section header
    std::optional<std::string_view> Header() const;

    /// False for an empty line and a comment.
    bool HasContent() const { return !text.empty() && text.front() != ';' && text.front() != '\0'; }

    /// Splits name "=" value at the first "=". Blanks around either are left out.
    /// @return false when there is no "="
    bool Split(std::string_view& name, std::string_view& value, Comment comment = Comment::Anywhere) const;

    /// @return the value of this line when it is `key` "=" value
    std::optional<std::string_view> ValueOf(std::string_view key, Comment comment = Comment::Anywhere) const;

private:
    bool EndsItem(std::size_t mark) const;
    std::string_view WithoutComment(Comment comment) const;
};

/// Walks through the lines of an INI text without copying it.
///
/// A line ends behind its newline or after 1024 bytes: what is longer goes on as a further line of its own. ";" or a
/// zero byte ends what counts of a line. "[" name "]" makes a header, whatever follows it. A byte order mark at the
/// start is skipped.
class CIniText {
public:
    static constexpr std::size_t kLineLimit = 1024;

    explicit CIniText(std::string_view text) : text_(text), next_(text.starts_with("\xEF\xBB\xBF") ? 3 : 0) {}

    /// @return false at the end of the text; the line then is an empty one at the end
    bool Next(CIniLine& line);

    /// Goes on to the next line of the section.
    /// @return false at the next header, or at the end of the text; `line` is what ended the section
    bool NextOfSection(CIniLine& line) { return Next(line) && !line.Header(); }

    /// Goes on until the header of the first section called `name`.
    bool FindSection(std::string_view name, CIniLine& header);

private:
    std::string_view text_;
    std::size_t next_;
};
