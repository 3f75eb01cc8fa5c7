// SPDX-License-Identifier: Apache-2.0
#include "mail/texts/DateTime.h"

#include <clocale>
#include <utility>

#include "mail/text/LumeString.h"
#include "platform/diagnostics/Trace.h"
#include "platform/threads/ModuleObjects.h"

namespace {

struct LanguageLocale {
    std::uint16_t languageId;
    const char* name;
};

constexpr LanguageLocale kLanguageLocales[] = {
    {1031, "German"},
    {1036, "French"},
    {kLanguageJapanese, "Japanese"},
    {3084, "French_Canada"},
};

const char* LocaleName(std::uint16_t languageId) {
    for (const LanguageLocale& row : kLanguageLocales) {
        if (row.languageId == languageId) {
            return row.name;
        }
    }
    return "English";
}

std::tm ToCalendar(std::time_t localSeconds) {
    std::tm calendar{};
    ::gmtime_r(&localSeconds, &calendar);
    return calendar;
}

}  // namespace

long CDateTime::LocalTimeOffset() {
    ::tzset();
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    return -timezone + (daylight != 0 && local.tm_isdst > 0 ? 3600 : 0);
}

std::time_t CDateTime::LocalNow() {
    return std::time(nullptr) + LocalTimeOffset();
}

void CDateTime::JapanDate(std::string& out, std::time_t localSeconds) {
    const std::tm calendar = ToCalendar(localSeconds);
    CLumeString text;
    text.Format("%d年%02d月%02d日", calendar.tm_year + 1900, calendar.tm_mon + 1, calendar.tm_mday);
    out = std::move(text);
}

void CDateTime::JapanTime(std::string& out, std::time_t localSeconds) {
    const std::tm calendar = ToCalendar(localSeconds);
    CLumeString text;
    text.Format("%02d:%02d:%02d", calendar.tm_hour, calendar.tm_min, calendar.tm_sec);
    out = std::move(text);
}

std::string CDateTime::Format(const char* format, std::time_t localSeconds) {
    const std::tm calendar = ToCalendar(localSeconds);
    char text[100];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return {text, std::strftime(text, sizeof text, format, &calendar)};
#pragma GCC diagnostic pop
}

std::string CDateTime::FormatInLanguage(const char* format, std::time_t localSeconds, std::uint16_t languageId) {
    const CMutexLock lock(moduleObjects.timeLocaleLock);
    SetTimeLocale(languageId);
    std::string text = Format(format, localSeconds);
    std::setlocale(LC_TIME, "C");  // NOLINT(concurrency-mt-unsafe): under the module's lock
    return text;
}

void SetTimeLocale(std::uint16_t languageId) {
    EM_TRACE(3, "\nEM_ALERT            : Set date/time locale for Vortal locale ID 0x%X (%d):", languageId, languageId);
    const char* name =
        std::setlocale(LC_TIME, LocaleName(languageId));  // NOLINT(concurrency-mt-unsafe): see the header
    EM_TRACE(3, "\nEM_ALERT            : Date/time locale changed to \"%s\"", name == nullptr ? "(null)" : name);
}
