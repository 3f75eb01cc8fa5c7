// SPDX-License-Identifier: Apache-2.0
#include "command/commands/StatusView.h"

#include <algorithm>
#include <array>
#include <ctime>
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

// Columns as wide as bytes; colours come last in a line, where they move nothing.
std::string Column(std::string text, std::size_t width) {
    text.resize(std::max(text.size() + 2, width), ' ');
    return text;
}

std::string MailLine(const Value& mail) {
    const std::string last = Text(mail, "last");
    const std::string error = Text(mail, "lastError");
    return "Mails about alerts: " + std::to_string(Number(mail, "sent")) + " sent, " +
           std::to_string(Number(mail, "failed")) + " failed" + (last.empty() ? "" : ", the last " + LocalTime(last)) +
           (error.empty() ? "" : ": " + error) + "\n";
}

}  // namespace

std::string ComponentLine(const CCommandContext& context, const Value& component) {
    constexpr std::size_t kWordWidth = 9;
    const std::uint32_t status = Number(component, "status");
    const std::string word = context.StatusWord(status);
    const std::string text = Text(component, "text");
    std::string line = LocalTime(Text(component, "since")) + "  " + word;
    const std::size_t plain = status == 1 ? 2 : status == 3 ? 5 : 7;
    line.append(kWordWidth - plain, ' ');
    line += Column(Text(component, "name"), 16) + Text(component, "designation") + (text.empty() ? "" : ": " + text);
    return line + "\n";
}

std::string StatusText(const CCommandContext& context, const std::string& json) {
    const CRapidJsonUtil::Document status = ParseJson(json);
    const std::uint32_t pending = Number(status, "pending");
    std::string text = "This server: " + context.StatusWord(Number(status, "system")) + ", " +
                       (pending == 0   ? "no alert is"
                        : pending == 1 ? "1 alert is"
                                       : std::to_string(pending) + " alerts are") +
                       " pending\n";
    const Value* components = CRapidJsonUtil::Find(status, "components");
    if (components != nullptr && components->IsArray() && !components->Empty()) {
        for (const Value& component : components->GetArray()) {
            text += ComponentLine(context, component);
        }
    } else {
        text += "No component has told its status.\n";
    }
    const Value* mail = CRapidJsonUtil::Find(status, "mail");
    return text + (mail != nullptr ? MailLine(*mail) : "");
}

std::string PendingText(const CCommandContext& context, const std::string& json) {
    const CRapidJsonUtil::Document alerts = ParseJson(json);
    if (!alerts.IsArray() || alerts.Empty()) {
        return "No alert is pending.\n";
    }
    std::string text;
    for (const Value& alert : alerts.GetArray()) {
        const bool isError = Text(alert, "severity") == "error";
        const std::string words = Text(alert, "text");
        text += LocalTime(Text(alert, "since")) + "  " + context.StatusWord(isError ? 3 : 2) +
                (isError ? "    " : "  ") + Column(Text(alert, "name"), 16) + Text(alert, "designation") +
                (words.empty() ? "" : ": " + words) + "\n";
    }
    return text + "\"ack\" acknowledges " + (alerts.Size() == 1 ? "it.\n" : "all of them.\n");
}
