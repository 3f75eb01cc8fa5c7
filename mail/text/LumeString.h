// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cwctype>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// A standard string with operations for splitting, trimming, replacing and formatting; it adds no data of its own.
///
/// The module uses the narrow instance `CLumeString`. The formatting operations exist for `char` only.
template <class StringType, class CharType>
class CLumeStringT : public StringType {
public:
    using View = std::basic_string_view<CharType>;

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

    /// True when `token` occurs in `text`; the case of ASCII letters is ignored. False for an empty token.
    static bool ContainsTokenIgnoreCase(const StringType& text, View token) {
        return !token.empty() && Find(text, Lowered(token, LowerAscii), 0, LowerAscii) != View::npos;
    }

    /// Makes the formatted text the content; the arguments may point into the old content.
    void Format(const char* fmt, ...) __attribute__((format(printf, 2, 3))) {
        va_list args;
        va_start(args, fmt);
        FormatV(*this, fmt, args);
        va_end(args);
    }

    /// Appends the formatted text; the arguments may point into the content.
    void AppendFormat(const char* fmt, ...) __attribute__((format(printf, 2, 3))) {
        va_list args;
        va_start(args, fmt);
        AppendFormatV(*this, fmt, args);
        va_end(args);
    }

    /// Worker of `Format`. A text that cannot be formatted (an encoding error) is the empty text.
    static void FormatV(StringType& out, const char* fmt, va_list args) __attribute__((format(printf, 2, 0))) {
        StringType text;
        AppendFormatV(text, fmt, args);
        out = std::move(text);
    }

    /// Worker of `AppendFormat`.
    static void AppendFormatV(StringType& out, const char* fmt, va_list args) __attribute__((format(printf, 2, 0))) {
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
    enum class Inserted { Searched, Skipped };

    static bool IsEmptyText(const CharType* text) { return text == nullptr || *text == CharType(); }

    // Objects, not functions: they are inlined where they are handed on.
    static constexpr auto LowerByLocale = [](CharType c) {
        if constexpr (sizeof(CharType) == 1) {
            return static_cast<CharType>(std::tolower(static_cast<unsigned char>(c)));
        } else {
            return static_cast<CharType>(std::towlower(static_cast<std::wint_t>(c)));
        }
    };
    static constexpr auto LowerAscii = [](CharType c) {
        return c >= 'A' && c <= 'Z' ? static_cast<CharType>(c - 'A' + 'a') : c;
    };

    template <class Lower>
    static StringType Lowered(View text, Lower lower) {
        StringType lowered(text);
        std::ranges::transform(lowered, lowered.begin(), lower);
        return lowered;
    }

    /// The place of the first occurrence of `wanted`, which is in lower case, from `from` on; else `npos`.
    template <class Lower>
    static std::size_t Find(View text, View wanted, std::size_t from, Lower lower) {
        const auto isHere = [&](std::size_t at) {
            return std::equal(wanted.begin(), wanted.end(), text.begin() + static_cast<std::ptrdiff_t>(at),
                              [&](CharType w, CharType c) { return w == lower(c); });
        };
        // Signs and digits are what no letter becomes: the text up to the next one is passed at the speed of memchr.
        const bool isSign = wanted.front() > 0 && wanted.front() < 'A';
        while (from + wanted.size() <= text.size()) {
            from = isSign ? text.find(wanted.front(), from) : from;
            if (from == View::npos || from + wanted.size() > text.size()) {
                break;
            }
            if (isHere(from)) {
                return from;
            }
            ++from;
        }
        return View::npos;
    }

    /// False when no occurrence of `wanted` can begin in `text` and end behind it.
    template <class Lower>
    static bool MayGoOn(View text, View wanted, Lower lower) {
        const View tail = text.substr(text.size() - std::min(text.size(), wanted.size() - 1));
        return std::ranges::any_of(tail, [&](CharType c) { return lower(c) == wanted.front(); });
    }

    /// Moves the text over. As long as no occurrence can have begun in what was moved, all up to the next one in the
    /// rest is moved at once; else one character, with a look for the search text at the end of what has been moved:
    /// the first occurrence that becomes complete is the leftmost one, and nothing before it needs another look.
    template <class Lower>
    static void Replace(StringType& target, View find, View replacement, Lower lower, Inserted inserted) {
        if (find.empty()) {
            return;
        }
        const StringType wanted = Lowered(find, lower);
        const bool mayBeginOne = replacement.find(wanted.front()) != View::npos;
        StringType result;
        StringType searched;           // the end of `result` in which an occurrence may begin, as it is compared
        std::vector<View> insertions;  // what is left of each inserted text, the innermost last
        View rest = target;
        result.reserve(target.size());  // an eighth of the time for a text of 64 KB
        while (!rest.empty() || !insertions.empty()) {
            if (insertions.empty() && !MayGoOn(searched, wanted, std::identity())) {
                const std::size_t found = Find(rest, wanted, 0, lower);
                const View passed = rest.substr(0, found);
                result += passed;
                if (found == View::npos) {
                    break;
                }
                searched = MayGoOn(passed, wanted, lower) ? Lowered(passed, lower) : StringType();
                rest.remove_prefix(found + wanted.size());
            } else {
                View& source = insertions.empty() ? rest : insertions.back();
                result.push_back(source.front());
                searched.push_back(insertions.empty() ? lower(source.front()) : source.front());
                source.remove_prefix(1);
                while (!insertions.empty() && insertions.back().empty()) {
                    insertions.pop_back();
                }
                if (!searched.ends_with(wanted)) {
                    continue;
                }
                result.resize(result.size() - wanted.size());
                searched.resize(searched.size() - wanted.size());
            }
            if (inserted == Inserted::Skipped || (!mayBeginOne && !MayGoOn(searched, wanted, std::identity()))) {
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
