// SPDX-License-Identifier: Apache-2.0
#include "command/mail/MailReport.h"

#include <algorithm>
#include <regex>

#include "agent/core/Json.h"

namespace {

// The failure of one server, as the module prints it.
bool ReadServerFailure(const std::string& trace, ServerResult& result) {
    static const std::regex kFailure(
        R"regex(ERROR! Server "(.*)", step (\S+): (.*) \(-?\d+\)(?:, last refusal: (.*))?$)regex");
    std::smatch found;
    if (std::regex_search(trace, found, kFailure)) {
        const std::string url = found[1];
        result.server = url.starts_with("smtp://") ? url.substr(7) : url;
        result.step = found[2];
        result.words = found[4].matched ? found[4].str() + " (" + found[3].str() + ")" : found[3].str();
        return true;
    }
    static const std::regex kUnusable(R"regex(ERROR! Unusable server name: "(.*)")regex");
    if (std::regex_search(trace, found, kUnusable)) {
        result.server = found[1];
        result.step = "connect";
        result.words = "the name holds blanks or control characters";
        return true;
    }
    if (trace.find("ERROR! The mail has no usable recipient!") != std::string::npos) {
        result.step = "connect";
        result.words = "there is no recipient that can be used, so it was not tried";
        return true;
    }
    return false;
}

bool ReadRefusal(const std::string& trace, std::string& refusal) {
    static const std::regex kRefusal(R"(ERROR! Recipient (.*) refused: (.*)$)");
    std::smatch found;
    if (!std::regex_search(trace, found, kRefusal)) {
        return false;
    }
    refusal = found[1].str() + ": " + found[2].str();
    return true;
}

bool ReadNote(const std::string& trace, std::string& note) {
    static const std::regex kNote(
        R"(Unusable recipient left out: .*|\S+ is held by .*|\S+ cannot be taken: .*|File ".*" not loaded: .*|)"
        R"(FAILED to lock notification configuration file|missing parameter: email sender)");
    std::smatch found;
    if (!std::regex_search(trace, found, kNote)) {
        return false;
    }
    note = found[0];
    return true;
}

}  // namespace

bool MailReport::IsWhole() const {
    return sent &&
           std::ranges::none_of(servers,
                                [](const ServerResult& server) { return server.taken && !server.refused.empty(); }) &&
           notes.empty();
}

MailReport ReadMailReport(const Traces& traces, const std::vector<ServerResult>& servers, bool sent) {
    MailReport report{.sent = sent, .servers = {}, .notes = {}};
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
    return text + (report.IsWhole() ? "The mail was sent.\n"
                   : report.sent    ? "The mail was sent, but not to everybody.\n"
                                    : "The mail was not sent.\n");
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
