// SPDX-License-Identifier: Apache-2.0
#include "command/commands/StatusView.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <ctime>
#include <cwchar>
#include <sstream>
#include <vector>

namespace {

using Value = CRapidJsonUtil::value;

std::string Text(const Value& object, const char* key) {
    const Value* found = CRapidJsonUtil::Find(object, rapidjson::StringRef(key));
    return found != nullptr && found->IsString() ? std::string(found->GetString(), found->GetStringLength())
                                                 : std::string();
}

std::uint32_t Number(const Value& object, const char* key) {
    const Value* found = CRapidJsonUtil::Find(object, rapidjson::StringRef(key));
    return found != nullptr && found->IsUint() ? found->GetUint() : 0;
}

// RFC 3339 as this machine's people read a clock; what is none stays as it is.
std::string LocalTime(const std::string& text) {
    std::tm utc{};
    const char* end = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    if (end == nullptr || !text.ends_with('Z')) {
        return text;
    }
    const std::time_t time = ::timegm(&utc);
    std::tm local{};
    ::localtime_r(&time, &local);
    std::array<char, 40> shown{};
    std::strftime(shown.data(), shown.size(), "%F %T", &local);
    return shown.data();
}

/// While it lives, the C library knows the width of each character on this thread.
class CCharacters {
public:
    CCharacters() : before_(::uselocale(Utf8())) {}
    ~CCharacters() { ::uselocale(before_); }
    CCharacters(const CCharacters&) = delete;
    CCharacters& operator=(const CCharacters&) = delete;
    CCharacters(CCharacters&&) = delete;
    CCharacters& operator=(CCharacters&&) = delete;

private:
    /// Made once, as that takes longer (17 us) than a line. Null where the system lacks it: what is not ASCII is
    /// unknown then.
    static locale_t Utf8() {
        static const locale_t made = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return made;
    }

    const locale_t before_;
};

struct Extent {
    std::size_t bytes = 0;
    std::size_t columns = 0;
};

// The first character of a text. A colour takes no room; what is no character, or an unknown one, takes a column.
Extent FirstCharacter(std::string_view text) {
    if (text[0] == '\033') {
        return {.bytes = std::min(text.find('m'), text.size() - 1) + 1, .columns = 0};
    }
    std::string_view rest = text;
    const auto character = TakeCharacter(rest);
    const int columns = character ? ::wcwidth(static_cast<wchar_t>(*character)) : -1;
    return {.bytes = text.size() - rest.size(), .columns = columns < 0 ? 1 : static_cast<std::size_t>(columns)};
}

// As much of a text as there is room for.
Extent Fitting(std::string_view text, std::size_t width) {
    const CCharacters characters;
    Extent fitting;
    while (fitting.bytes < text.size()) {
        const Extent next = FirstCharacter(text.substr(fitting.bytes));
        if (next.columns > width - fitting.columns) {
            break;
        }
        fitting.bytes += next.bytes;
        fitting.columns += next.columns;
    }
    return fitting;
}

std::string Column(std::string text, std::size_t width) {
    const std::size_t shown = Fitting(text, SIZE_MAX).columns;
    return text.append(std::max(shown + 2, width) - shown, ' ');
}

std::string Since(const Value& object) {
    constexpr std::size_t kTimeWidth = 21;
    const std::string since = Text(object, "since");
    return Column(since.empty() ? "-" : LocalTime(since), kTimeWidth);
}

// How long it is until then, as people say it.
std::string TimeUntil(const std::string& text) {
    std::tm utc{};
    if (::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &utc) == nullptr) {
        return "-";
    }
    constexpr std::time_t kMinute = 60;
    constexpr std::time_t kHour = 60 * kMinute;
    constexpr std::time_t kDay = 24 * kHour;
    const std::time_t left = ::timegm(&utc) - std::time(nullptr);
    return left <= 0            ? "now"
           : left < 2 * kMinute ? "in " + std::to_string(left) + " s"
           : left < 2 * kHour   ? "in " + std::to_string(left / kMinute) + " min"
           : left < 2 * kDay    ? "in " + std::to_string(left / kHour) + " h"
                                : "in " + std::to_string(left / kDay) + " d";
}

constexpr std::size_t kWordWidth = 9;
constexpr std::size_t kNextWidth = 12;
constexpr std::size_t kNameWidth = 16;

// Colours take no room.
std::string Word(const CCommandContext& context, std::uint32_t status) {
    const std::size_t shown = status == 1 ? 2 : status == 3 ? 5 : 7;
    return context.StatusWord(status) + std::string(kWordWidth - shown, ' ');
}

std::string Line(const CCommandContext& context, const Value& component, bool withNext) {
    const std::uint32_t status = Number(component, "status");
    const std::string text = Text(component, "text");
    return Since(component) + Word(context, status) +
           (withNext ? Column(TimeUntil(Text(component, "next")), kNextWidth) : "") +
           Column(Text(component, "name"), kNameWidth) + Text(component, "designation") +
           (text.empty() ? "" : ": " + text) + "\n";
}

std::string AlertLine(const CCommandContext& context, const Value& alert) {
    const std::string severity = Text(alert, "severity");
    const std::string words = Text(alert, "text");
    const std::uint32_t status = severity == "error" ? 3 : severity == "warning" ? 2 : 1;
    return Since(alert) + Word(context, status) + Column(Text(alert, "name"), kNameWidth) + Text(alert, "designation") +
           (words.empty() ? "" : ": " + words) + "\n";
}

std::string MailLine(const Value& mail) {
    const std::string last = Text(mail, "last");
    return "Mails about alerts: " + std::to_string(Number(mail, "sent")) + " sent, " +
           std::to_string(Number(mail, "failed")) + " failed" + (last.empty() ? "" : ", the last " + LocalTime(last)) +
           "\n";
}

// A colour ends with its line.
std::string Cut(const std::string& line, std::size_t width) {
    const std::size_t bytes = Fitting(line, width).bytes;
    return line.substr(0, bytes) + (bytes < line.size() && line.find('\033') < bytes ? "\033[0m" : "");
}

// Leaves out as many components as there is no room for, the well ones first.
// @param lines  one for each component
void LeaveOut(std::vector<std::string>& lines, const Value& components, std::size_t room) {
    std::size_t bad = 0;
    std::size_t out = 0;
    for (const bool takesAll : {false, true}) {
        for (std::size_t i = lines.size(); i > 0 && lines.size() - out + 1 > room; --i) {
            const bool isOk = Number(components[static_cast<rapidjson::SizeType>(i - 1)], "status") == 1;
            if (!lines[i - 1].empty() && (takesAll || isOk)) {
                lines[i - 1].clear();
                ++out;
                bad += isOk ? 0 : 1;
            }
        }
    }
    std::erase(lines, "");
    lines.push_back(std::to_string(out) + " more, " + (bad == 0 ? "all OK" : std::to_string(bad) + " of them not OK"));
}

}  // namespace

std::string ComponentLine(const CCommandContext& context, const Value& component) {
    return Line(context, component, false);
}

std::string StatusText(const CCommandContext& context, const std::string& json, bool withNext) {
    const CRapidJsonUtil::Document status = ParseJson(json);
    const std::uint32_t pending = Number(status, "pending");
    std::string text = "This server: " + context.StatusWord(Number(status, "system")) + ", " +
                       (pending == 0   ? "no alert is"
                        : pending == 1 ? "1 alert is"
                                       : std::to_string(pending) + " alerts are") +
                       " pending\n";
    const Value* components = CRapidJsonUtil::Find(status, "components");
    if (components != nullptr && components->IsArray() && !components->Empty()) {
        text += withNext ? "Since                Status   Next check  Component\n" : "";
        for (const Value& component : components->GetArray()) {
            text += Line(context, component, withNext);
        }
    } else {
        text += "No component has told its status.\n";
    }
    const Value* mail = CRapidJsonUtil::Find(status, "mail");
    return text + (mail != nullptr ? MailLine(*mail) : "");
}

std::string ScreenText(const CCommandContext& context, const std::string& json, std::size_t rows, std::size_t columns) {
    const CRapidJsonUtil::Document status = ParseJson(json);
    std::istringstream text(StatusText(context, json, true));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    constexpr std::size_t kEnoughRows = 8;  // on fewer a component is worth more than a hint
    if (rows >= kEnoughRows) {
        lines.insert(lines.end(), {"", "Ctrl-C ends the view."});
    }
    const Value* components = CRapidJsonUtil::Find(status, "components");
    if (lines.size() > rows && components != nullptr && components->IsArray() && !components->Empty()) {
        const auto first = lines.begin() + 2;
        const auto last = first + components->Size();
        std::vector<std::string> shown(first, last);
        const std::size_t others = lines.size() - shown.size();
        LeaveOut(shown, *components, rows - std::min(rows, others));
        lines.insert(lines.erase(first, last), shown.begin(), shown.end());
    }
    lines.resize(std::min(lines.size(), rows));
    std::string screen;
    for (const std::string& line : lines) {
        screen += (screen.empty() ? "" : "\n") + Cut(line, columns);
    }
    return screen;
}

std::string PendingText(const CCommandContext& context, const std::string& json) {
    const CRapidJsonUtil::Document alerts = ParseJson(json);
    if (!alerts.IsArray() || alerts.Empty()) {
        return "No alert is pending.\n";
    }
    std::string text;
    for (const Value& alert : alerts.GetArray()) {
        text += AlertLine(context, alert);
    }
    return text + "\"ack\" acknowledges " + (alerts.Size() == 1 ? "it.\n" : "all of them.\n");
}
