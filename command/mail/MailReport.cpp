// SPDX-License-Identifier: Apache-2.0
#include "command/mail/MailReport.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "agent/core/Json.h"

// Texts are searched by hand: the library's regular expressions recurse at each character, and a name or an answer that
// is long enough ends the stack.

namespace {

using View = std::string_view;

/// @return what stands before the first `mark`, which is cut off `text` together with it; nothing without a mark
std::optional<View> CutOff(View& text, View mark) {
    const auto at = text.find(mark);
    if (at == View::npos) {
        return std::nullopt;
    }
    const View before = text.substr(0, at);
    text.remove_prefix(at + mark.size());
    return before;
}

// The failure of a transfer: the server's address, the step, libcurl's words with its code, and the server's words.
bool ReadTransferFailure(View text, ServerResult& result) {
    constexpr View kScheme = "smtp://";
    if (!CutOff(text, "ERROR! Server \"")) {
        return false;
    }
    const auto url = CutOff(text, "\", step ");
    const auto step = CutOff(text, ": ");
    if (!url || !step) {
        return false;
    }
    const auto beforeRefusal = CutOff(text, "), last refusal: ");
    const View explanation = beforeRefusal.value_or(text);
    const View words = explanation.substr(0, explanation.rfind(" ("));
    result.server = url->substr(url->starts_with(kScheme) ? kScheme.size() : 0);
    result.step = *step;
    result.words = beforeRefusal ? std::string(text) + " (" + std::string(words) + ")" : words;
    return true;
}

// The failure of one server, as the module prints it.
bool ReadServerFailure(View text, ServerResult& result) {
    if (ReadTransferFailure(text, result)) {
        return true;
    }
    if (View name = text; CutOff(name, "ERROR! Unusable server name: \"")) {
        result.server = name.substr(0, name.rfind('"'));
        result.step = "connect";
        result.words = "the name holds blanks or control characters";
        return true;
    }
    if (text.find("ERROR! The mail has no usable recipient!") != View::npos) {
        result.step = "connect";
        result.words = "there is no recipient that can be used, so it was not tried";
        return true;
    }
    return false;
}

bool ReadRefusal(View text, std::string& refusal) {
    if (!CutOff(text, "ERROR! Recipient ")) {
        return false;
    }
    const auto recipient = CutOff(text, " refused: ");
    refusal = recipient ? std::string(*recipient) + ": " + std::string(text) : std::string();
    return recipient.has_value();
}

bool ReadNote(View text, std::string& note) {
    struct Row {
        View mark;
        View opening;  // the note begins with the last one before its mark, or behind it where that is a blank
    };
    static constexpr auto kRows = std::to_array<Row>({{"Unusable recipient left out: ", ""},
                                                      {" is held by ", " "},
                                                      {" cannot be taken: ", " "},
                                                      {"\" not loaded: ", "File \""},
                                                      {"FAILED to lock notification configuration file", ""},
                                                      {"missing parameter: email sender", ""}});
    for (const auto& [mark, opening] : kRows) {
        const auto at = text.find(mark);
        if (at == View::npos || (at == 0 && !opening.empty())) {
            continue;
        }
        const auto begin = opening.empty() ? at : text.rfind(opening, at - 1) + (opening == " " ? 1 : 0);
        text.remove_prefix(begin == View::npos ? at : begin);
        note = text.substr(0, text.find('\n'));
        return true;
    }
    return false;
}

}  // namespace

bool MailReport::IsWhole() const {
    return sent && isKnown &&
           std::ranges::none_of(servers,
                                [](const ServerResult& server) { return server.taken && !server.refused.empty(); }) &&
           notes.empty();
}

std::string MailReport::Failure() const {
    return IsWhole()  ? ""
           : !sent    ? "the mail was not sent"
           : !isKnown ? "it is not known whether the mail was sent to everybody"
                      : "the mail was not sent to everybody";
}

MailReport ReadMailReport(const Traces& traces, const std::vector<ServerResult>& servers, bool sent) {
    MailReport report{.sent = sent};
    ServerResult current;
    const auto named = [&](ServerResult result) {
        const std::size_t place = report.servers.size();
        if (place < servers.size()) {
            result.number = servers[place].number;
            result.server = servers[place].server;
        }
        return result;
    };
    for (const std::string& trace : traces) {
        std::string text;
        if (ReadRefusal(trace, text)) {
            current.refused.push_back(text);
        } else if (ReadServerFailure(trace, current)) {
            report.servers.push_back(named(std::exchange(current, {})));
        } else if (ReadNote(trace, text) && std::ranges::find(report.notes, text) == report.notes.end()) {
            report.notes.push_back(text);
        }
    }
    if (sent) {
        current.taken = true;
        report.servers.push_back(named(current));
    }
    return report;
}

std::string MailReportText(const MailReport& report) {
    std::string text;
    for (const std::string& note : report.notes) {
        text += note + "\n";
    }
    for (const ServerResult& server : report.servers) {
        text +=
            "server " + std::to_string(server.number) + ", " + server.server + ": " +
            (server.taken ? "took the mail" : "did not take the mail at step " + server.step + ": " + server.words) +
            "\n";
        for (const std::string& refused : server.refused) {
            text += "  recipient refused: " + refused + "\n";
        }
    }
    return text + (report.IsWhole()  ? "The mail was sent.\n"
                   : !report.sent    ? "The mail was not sent.\n"
                   : !report.isKnown ? "The mail was sent; whether to everybody is not known.\n"
                                     : "The mail was sent, but not to everybody.\n");
}

std::string MailReportJson(const MailReport& report) {
    const auto list = [](const std::vector<std::string>& texts) {
        std::string json;
        for (const std::string& text : texts) {
            json += (json.empty() ? "" : ",") + JsonString(text);
        }
        return "[" + json + "]";
    };
    std::string servers;
    for (const ServerResult& server : report.servers) {
        servers += (servers.empty() ? "{\"number\":" : ",{\"number\":") + std::to_string(server.number) +
                   ",\"server\":" + JsonString(server.server) + ",\"taken\":" + (server.taken ? "true" : "false") +
                   ",\"step\":" + JsonString(server.step) + ",\"words\":" + JsonString(server.words) +
                   ",\"refused\":" + list(server.refused) + "}";
    }
    return std::string("{\"sent\":") + (report.sent ? "true" : "false") + ",\"servers\":[" + servers +
           "],\"notes\":" + list(report.notes) + "}";
}
