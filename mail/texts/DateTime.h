// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

/// Local dates and times of the alert mails. All operations may be called on any thread.
class CDateTime {
public:
    /// Seconds to add to UTC for local time: the zone's standard offset, and one hour while daylight saving time is in
    /// force (a zone that shifts by another amount is off by the difference).
    static long LocalTimeOffset();

    /// Now in local time, as seconds whose gmtime gives the local calendar.
    static std::time_t LocalNow();

    /// "2026年01月31日" in UTF-8.
    static void JapanDate(std::string& out, std::time_t localSeconds);

    /// "23:05:09"
    static void JapanTime(std::string& out, std::time_t localSeconds);

    /// Formats local seconds with strftime.
    /// @return empty when the result is empty or does not fit 99 bytes
    static std::string Format(const char* format, std::time_t localSeconds);

    /// Formats like Format under the time locale of a language, then sets the process back to the "C" time locale.
    ///
    /// HAZARD: LC_TIME belongs to the whole process. One lock of the module keeps its own threads apart; a host thread
    /// that formats a date meanwhile sees the language's forms.
    static std::string FormatInLanguage(const char* format, std::time_t localSeconds, std::uint16_t languageId);
};

/// Sets the process's LC_TIME for a Windows-style language id; one that is not in the table means English. Prefer
/// CDateTime::FormatInLanguage, which sets it back.
void SetTimeLocale(std::uint16_t languageId);

constexpr std::uint16_t kLanguageJapanese = 1041;
