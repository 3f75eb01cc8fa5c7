// SPDX-License-Identifier: Apache-2.0
#include "agent/settings/Settings.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <sstream>
#include <utility>

#include "agent/core/Command.h"
#include "agent/core/Json.h"
#include "agent/settings/UsageError.h"
#include "sip/RapidJsonUtil.h"
#include "sip/Vocabulary.h"

namespace {

using Kind = OperatorSetting::Kind;

constexpr auto kMailServerSettings = std::to_array<OperatorSetting>({
    {.name = "sender", .id = kSender, .kind = Kind::Text, .meaning = "the address that mails come from"},
    {.name = "sender-name",
     .id = kSenderDescription,
     .kind = Kind::Text,
     .meaning = "the name shown with it; a mail without one is malformed"},
    {.name = "recipients",
     .id = kRecipients,
     .kind = Kind::Text,
     .meaning = "addresses, with blanks, commas or semicolons"},
    {.name = "recipients-cc", .id = kRecipientsCc, .kind = Kind::Text, .meaning = "addresses that get a copy"},
    {.name = "servers",
     .id = kServerCount,
     .kind = Kind::Number,
     .meaning = "how many mail servers there are",
     .isReadOnly = true},
    {.name = "host",
     .id = kServerHost,
     .kind = Kind::Text,
     .meaning = "its name or address; with \"smtps://\" before it where TLS is spoken at once"},
    {.name = "port",
     .id = kServerPort,
     .kind = Kind::Number,
     .meaning = "its port, mostly 25, 465 or 587",
     .lowest = 1,
     .highest = 65535},
    {.name = "authentication",
     .id = kServerAuthenticationType,
     .kind = Kind::LogIn,
     .meaning = "how to log in: none, or smtp with user and password"},
    {.name = "user", .id = kServerUserName, .kind = Kind::Text, .meaning = "who logs in"},
    {.name = "password",
     .id = kServerPassword,
     .kind = Kind::Secret,
     .meaning = "stored enciphered; asked for when it is left out"},
    {.name = "smtps",
     .id = kServerSmtps,
     .kind = Kind::Switch,
     .meaning = "whether to insist on STARTTLS; for TLS at once see host"},
});

constexpr auto kAlertSettings = std::to_array<OperatorSetting>({
    {.name = "beep",
     .id = kBeepAlert,
     .kind = Kind::Switch,
     .meaning = "an alert makes the speaker sound",
     .fallback = "off"},
    {.name = "warning-tones",
     .id = kBeepWarningSequence,
     .kind = Kind::Tones,
     .meaning = "Hz/ms/pause of each tone, such as 2300/150/100 2400/400/100",
     .fallback = "2300/150/100 2400/400/100 2300/150/100"},
    {.name = "error-tones",
     .id = kBeepErrorSequence,
     .kind = Kind::Tones,
     .meaning = "the same for an error",
     .fallback = "2300/150/100 2400/400/100 2300/150/100 2400/400/100 2300/150/100 2400/400/100"},
    {.name = "mail",
     .id = kMailForStatusAlert,
     .kind = Kind::Switch,
     .meaning = "an alert sends a mail",
     .fallback = "off"},
    {.name = "severity",
     .id = kMailAlertSeverity,
     .kind = Kind::Number,
     .meaning = "the lowest status that is mailed: 1 OK, 2 warning, 3 error",
     .highest = 3},
    {.name = "importance",
     .id = kMailAlertImportance,
     .kind = Kind::Number,
     .meaning = "of mails: 1 low, 2 normal, 3 high, 0 by the status",
     .highest = 255,
     .fallback = "0"},
    {.name = "subject",
     .id = kMailAlertSubject,
     .kind = Kind::Text,
     .meaning = "of alert mails, such as \"$(ComponentName)\""},
    {.name = "message", .id = kMailAlertMessage, .kind = Kind::Lines, .meaning = "the text of alert mails"},
    {.name = "language",
     .id = kMailLanguage,
     .kind = Kind::Number,
     .meaning = "a locale id: 1033 English, 1031 German",
     .highest = 65535,
     .fallback = "0"},
    {.name = "new-updates",
     .id = kConfUpdAlertNewUpdates,
     .kind = Kind::Switch,
     .meaning = "new updates are mailed",
     .fallback = "off"},
    {.name = "finished-updates",
     .id = kConfUpdAlertJobFinished,
     .kind = Kind::Switch,
     .meaning = "finished updates are mailed",
     .fallback = "off"},
    {.name = "update-subject", .id = kUpdateStatusSubject, .kind = Kind::Text, .meaning = "of update mails"},
    {.name = "update-message", .id = kUpdateStatusMessage, .kind = Kind::Lines, .meaning = "the text of update mails"},
    {.name = "word-ok", .id = kStringStatusOk, .kind = Kind::Text, .meaning = "what mails call OK"},
    {.name = "word-warning", .id = kStringStatusWarning, .kind = Kind::Text, .meaning = "what mails call a warning"},
    {.name = "word-error", .id = kStringStatusError, .kind = Kind::Text, .meaning = "what mails call an error"},
    {.name = "date", .id = kStringDateFormat, .kind = Kind::Text, .meaning = "$(Date) of mails"},
    {.name = "time", .id = kStringTimeFormat, .kind = Kind::Text, .meaning = "$(Time) of mails"},
});

constexpr std::array<std::string_view, 3> kLogIns = {"none", "smtp", "pop3"};  // the last one is read, never set

[[noreturn]] void Refuse(const OperatorSetting& setting, const std::string& right) {
    throw CUsageError(std::string(setting.name) + " is " + right);
}

std::string Joined(std::span<const std::string> words) {
    std::string text;
    for (const std::string& word : words) {
        text += (&word == words.data() ? "" : " ") + word;
    }
    return text;
}

std::string WithLineBreaks(std::string text) {
    for (std::size_t at = 0; (at = text.find("\\n", at)) != std::string::npos; ++at) {
        text.replace(at, 2, "\n");
    }
    return text;
}

std::string WithoutLineBreaks(std::string text) {
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
        text.replace(at, 1, "\\n");
    }
    return text;
}

constexpr std::size_t kBytesOfNumber = 4;  // the lowest first
constexpr std::size_t kNumbersOfTone = 3;
constexpr std::uint32_t kHighestOfTone = 10000;  // Hz and ms; the module waits no longer for a tone to end

// @return nothing unless the bytes make whole tones
std::string ShowTones(const CRapidJsonUtil::value& bytes) {
    std::string text;
    std::uint32_t number = 0;
    for (rapidjson::SizeType i = 0; i < bytes.Size(); ++i) {
        number |= ReadNumber(bytes[i]).value_or(0) << (8 * (i % kBytesOfNumber));
        if ((i + 1) % kBytesOfNumber == 0) {
            const bool begins = i / kBytesOfNumber % kNumbersOfTone == 0;
            text += (text.empty() ? "" : begins ? " " : "/") + std::to_string(std::exchange(number, 0));
        }
    }
    return bytes.Size() % (kBytesOfNumber * kNumbersOfTone) == 0 ? text : std::string();
}

std::string ToneData(const OperatorSetting& setting, std::span<const std::string> words) {
    std::string bytes;
    for (const std::string& word : words) {
        std::string_view rest = word;
        for (std::size_t i = 0; i < kNumbersOfTone; ++i) {
            const std::size_t end = i + 1 < kNumbersOfTone ? rest.find('/') : rest.size();
            const auto number = ParseWrittenNumber(rest.substr(0, end));
            if (end == std::string_view::npos || !number || *number > kHighestOfTone) {
                Refuse(setting, "a list of tones, each of three numbers up to " + std::to_string(kHighestOfTone) +
                                    ": Hz, milliseconds, milliseconds of pause, such as 2300/150/100");
            }
            for (std::size_t byte = 0; byte < kBytesOfNumber; ++byte) {
                bytes += (bytes.empty() ? "" : ",") + std::to_string(*number >> (8 * byte) & 0xFF);
            }
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    return R"({"RAW":[)" + bytes + "]}";
}

}  // namespace

std::span<const OperatorSetting> MailServerSettings() {
    return kMailServerSettings;
}

std::span<const OperatorSetting> AlertSettings() {
    return kAlertSettings;
}

const OperatorSetting& FindSetting(std::span<const OperatorSetting> settings, std::string_view name) {
    const auto found = std::ranges::find(settings, name, &OperatorSetting::name);
    if (found != settings.end()) {
        return *found;
    }
    std::string names;
    for (const OperatorSetting& setting : settings) {
        names += (names.empty() ? "" : ", ") + std::string(setting.name);
    }
    throw CUsageError("there is no \"" + std::string(name) + "\" here; there are " + names);
}

std::optional<std::uint32_t> ParseWrittenNumber(std::string_view text) {
    const bool isOctal = text.size() > 1 && text[0] == '0' && text[1] != 'x' && text[1] != 'X';
    return isOctal ? std::nullopt : ParseNumber(text);
}

std::string SettingData(const OperatorSetting& setting, std::span<const std::string> words) {
    const std::string text = Joined(words);
    switch (setting.kind) {
        case Kind::Text:
        case Kind::Secret:
        case Kind::Lines:
            if (!IsValidUtf8(text)) {
                Refuse(setting, "a text in UTF-8");
            }
            return JsonString(setting.kind == Kind::Lines ? WithLineBreaks(text) : text);
        case Kind::Number: {
            const auto number = ParseWrittenNumber(text);
            if (!number || *number < setting.lowest || *number > setting.highest) {
                Refuse(setting, "a number from " + std::to_string(setting.lowest) + " to " +
                                    std::to_string(setting.highest) +
                                    (text.starts_with('0') ? ", without a leading 0 (" : " (") +
                                    std::string(setting.meaning) + ")");
            }
            return std::to_string(*number);
        }
        case Kind::Switch:
            if (text != "on" && text != "off") {
                Refuse(setting, "on or off");
            }
            return text == "on" ? "1" : "0";
        case Kind::LogIn:
            if (text != "none" && text != "smtp") {
                Refuse(setting, "none or smtp");
            }
            return text == "smtp" ? "1" : "0";
        case Kind::Tones:
            return ToneData(setting, words);
    }
    return {};
}

std::string FallbackData(const OperatorSetting& setting) {
    std::istringstream input{std::string(setting.fallback)};
    const std::vector<std::string> words(std::istream_iterator<std::string>(input), {});
    return words.empty() ? "" : SettingData(setting, words);
}

std::string ShowSetting(const OperatorSetting& setting, std::string_view data) {
    const CRapidJsonUtil::Document value = ParseJson(data);
    if (value.IsString()) {
        const std::string text(value.GetString(), value.GetStringLength());
        if (setting.kind == Kind::Secret && !text.empty()) {
            return "(hidden)";
        }
        return text.empty() ? "(empty)" : WithoutLineBreaks(text);
    }
    if (const CRapidJsonUtil::value* bytes = CRapidJsonUtil::Find(value, "RAW"); bytes != nullptr && bytes->IsArray()) {
        const std::string tones = ShowTones(*bytes);
        return tones.empty() ? std::string(data) : tones;
    }
    const auto number = ReadNumber(value);
    if (number && setting.kind == Kind::Switch) {
        return (*number & 0xFF) == 1 ? "on" : "off";  // as the module takes it
    }
    if (number && setting.kind == Kind::LogIn && *number < kLogIns.size()) {
        return std::string(kLogIns.at(*number));
    }
    return std::string(data);
}

std::vector<std::string> SettingValues(const OperatorSetting& setting) {
    switch (setting.kind) {
        case Kind::Switch:
            return {"on", "off"};
        case Kind::LogIn:
            return {"none", "smtp"};
        default:
            return {};
    }
}
