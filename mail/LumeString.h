#pragma once

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cwctype>
#include <string>
#include <string_view>
#include <vector>

/// A standard string with operations for splitting, trimming, replacing and formatting; it adds no data of its own.
///
/// The module uses the narrow instance `CLumeString`. The formatting operations exist for `char` only.
template <class StringType, class CharType>
class CLumeStringT : public StringType {
public:
    using StringType::StringType;
    CLumeStringT() = default;
    CLumeStringT(const StringType& text) : StringType(text) {}        // NOLINT(*-explicit-*): a string like any other
    CLumeStringT(StringType&& text) : StringType(std::move(text)) {}  // NOLINT(*-explicit-*)

    /// Splits the whole string at each of the characters in `delims`. Empty tokens are kept, tokens are not trimmed; an
    /// empty string is one empty token. Without `delims` the whole string is the one token.
    /// @return true when `out` holds a token
    bool Split(std::vector<StringType>& out, const CharType* delims) const {
        out.clear();
        StringType token;
        const bool whole = IsEmptyText(delims);
        for (unsigned long pos = 0; Split(token, *this, delims, pos);) {
            out.push_back(token);
            if (whole) {
                break;
            }
        }
        return !out.empty();
    }

    /// Takes the token of `source` that starts at `pos` and moves `pos` behind the delimiter that ends it, or to `npos`
    /// when it was the last one. Without `delims` the token is the rest of `source` and `pos` stays: who loops on this
    /// form must stop by himself.
    /// @return false when `pos` is `npos`
    /// @throws std::out_of_range when `pos` lies behind the end of `source`
    static bool Split(StringType& token, const StringType& source, const CharType* delims, unsigned long& pos) {
        if (pos == StringType::npos) {
            return false;
        }
        if (IsEmptyText(delims)) {
            token = source.substr(pos);
            return true;
        }
        const auto end = source.find_first_of(delims, pos);
        token = source.substr(pos, end == StringType::npos ? end : end - pos);
        pos = end == StringType::npos ? end : end + 1;
        return true;
    }

    /// Removes the leading characters that occur in `chars`.
    static void TrimLeft(StringType& s, const CharType* chars) {
        if (!IsEmptyText(chars)) {
            s.erase(0, std::min(s.find_first_not_of(chars), s.size()));
        }
    }

    /// Removes the trailing characters that occur in `chars`.
    static void TrimRight(StringType& s, const CharType* chars) {
        if (!IsEmptyText(chars)) {
            s.erase(s.find_last_not_of(chars) + 1);  // npos + 1 is 0: nothing stays
        }
    }

    /// Replaces every occurrence of `find` in `target`, ignoring case by the current locale's mapping, as if the search
    /// began anew at the start after each replacement. The inserted text takes part in that search with its case as it
    /// is, so a replacement that holds the lower-case form of `find` would never end: callers must not pass one. See
    /// `ReplaceTokenIgnoreCase` for a replacement that comes from outside. An empty `find` changes nothing.
    static void ReplaceIgnoreCase(StringType& target, const StringType& find, const StringType& replacement) {
        Replace(target, find, replacement, LowerByLocale, Inserted::Searched);
    }

    /// `ReplaceIgnoreCase` for any `value`; it always ends. The case of ASCII letters is ignored. A value that holds
    /// the first character of `token`, and so might hold the token itself, is inserted and never looked at again. Any
    /// other gives the result of `ReplaceIgnoreCase`, which ends because each replacement uses up one such character.
    static void ReplaceTokenIgnoreCase(StringType& target, const StringType& token, const StringType& value) {
        const bool mayHoldToken = !token.empty() && value.find(LowerAscii(token.front())) != StringType::npos;
        Replace(target, token, value, LowerAscii, mayHoldToken ? Inserted::Skipped : Inserted::Searched);
    }

    /// Makes the formatted text the content; the arguments may point into the old content.
    void Format(const CharType* fmt, ...) __attribute__((format(printf, 2, 3))) {
        va_list args;
        va_start(args, fmt);
        FormatV(*this, fmt, args);
        va_end(args);
    }

    /// Appends the formatted text; the arguments may point into the content.
    void AppendFormat(const CharType* fmt, ...) __attribute__((format(printf, 2, 3))) {
        va_list args;
        va_start(args, fmt);
        AppendFormatV(*this, fmt, args);
        va_end(args);
    }

    /// Worker of `Format`. A text that cannot be formatted (an encoding error) is the empty text.
    static void FormatV(StringType& out, const CharType* fmt, va_list args) __attribute__((format(printf, 2, 0))) {
        StringType text;
        AppendFormatV(text, fmt, args);
        out = std::move(text);
    }

    /// Worker of `AppendFormat`.
    static void AppendFormatV(StringType& out, const CharType* fmt, va_list args)
        __attribute__((format(printf, 2, 0))) {
        va_list measured;
        va_copy(measured, args);
        const int length = std::vsnprintf(nullptr, 0, fmt, measured);
        va_end(measured);
        if (length > 0) {
            StringType text(static_cast<std::size_t>(length), CharType());
            std::vsnprintf(text.data(), text.size() + 1, fmt, args);
            out += text;
        }
    }

private:
    using View = std::basic_string_view<CharType>;
    enum class Inserted { Searched, Skipped };

    static bool IsEmptyText(const CharType* text) { return text == nullptr || *text == CharType(); }

    static CharType LowerByLocale(CharType c) {
        if constexpr (sizeof(CharType) == 1) {
            return static_cast<CharType>(std::tolower(static_cast<unsigned char>(c)));
        } else {
            return static_cast<CharType>(std::towlower(static_cast<std::wint_t>(c)));
        }
    }
    static CharType LowerAscii(CharType c) { return c >= 'A' && c <= 'Z' ? static_cast<CharType>(c - 'A' + 'a') : c; }

    /// Moves the text over character by character and looks for the search text at the end of what has been moved: the
    /// first occurrence that becomes complete is the leftmost one, and nothing before it needs another look.
    static void Replace(StringType& target, View find, View replacement, CharType (*lower)(CharType),
                        Inserted inserted) {
        if (find.empty()) {
            return;
        }
        StringType wanted(find);
        std::transform(wanted.begin(), wanted.end(), wanted.begin(), lower);

        StringType result;
        StringType searched;           // the end of `result` that may match, as it is compared
        std::vector<View> insertions;  // what is left of each inserted text, the innermost last
        View rest = target;
        while (!rest.empty() || !insertions.empty()) {
            View& source = insertions.empty() ? rest : insertions.back();
            const CharType next = source.front();
            source.remove_prefix(1);
            result.push_back(next);
            searched.push_back(insertions.empty() ? lower(next) : next);
            while (!insertions.empty() && insertions.back().empty()) {
                insertions.pop_back();
            }
            if (!searched.ends_with(wanted)) {
                continue;
            }
            result.resize(result.size() - wanted.size());
            searched.resize(searched.size() - wanted.size());
            if (inserted == Inserted::Skipped) {
                result += replacement;
                searched.clear();
            } else if (!replacement.empty()) {
                insertions.push_back(replacement);
            }
        }
        target = std::move(result);
    }
};

using CLumeString = CLumeStringT<std::string, char>;
