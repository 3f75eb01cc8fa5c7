// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Story.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <string_view>

#include "agent/core/Transcript.h"
#include "sip/Vocabulary.h"

namespace {

std::string NameOf(const VocabularyWord* word) {
    return word != nullptr ? std::string(word->name) : "";
}

std::string Hex(std::uint32_t code) {
    std::array<char, 16> hex{};
    std::snprintf(hex.data(), hex.size(), "0x%04X", code);
    return hex.data();
}

bool IsValueAccess(std::uint32_t operation) {
    return operation == kReadConfigurationValue || operation == kWriteConfigurationValue;
}

// What the extension of the operation code is called; empty when it means nothing there.
std::string NameOfExtension(std::uint32_t operation, std::uint32_t extension) {
    if (IsValueAccess(operation)) {
        return NameOf(FindConfigurationValue(extension));
    }
    return operation == kReadSystemInformation ? NameOf(FindSystemInformation(extension)) : "";
}

std::string Describe(const Command& command) {
    if (!command.oc) {
        return "a message without operation code";
    }
    const std::string operation = NameOf(FindOperation(*command.oc));
    const std::uint32_t extension = command.oe.value_or(0);
    const std::string value = NameOfExtension(*command.oc, extension);
    std::string text = (operation.empty() ? "operation" : operation) + (value.empty() ? "" : " \"" + value + "\"") +
                       " (" + Hex(*command.oc) + (extension != 0 ? "-" + Hex(extension) : "") + ")";
    if (command.oi.value_or(0) != 0) {
        text += ", object " + std::to_string(*command.oi);
    }
    return text;
}

// UTF-8, cut between characters.
std::string Shortened(const std::string& data) {
    constexpr std::size_t kLongest = 100;
    if (data.size() <= kLongest) {
        return data;
    }
    std::size_t end = kLongest;
    while ((data[end] & 0xC0) == 0x80) {
        --end;
    }
    return data.substr(0, end) + "...";
}

// Status and data: what an answer adds to its request.
std::string Outcome(const Command& command) {
    std::string text;
    if (command.st) {
        text = StatusText(*command.st);
    }
    if (!command.data.empty()) {
        const bool secret = IsValueAccess(command.oc.value_or(0)) && command.oe == kServerPassword;
        text += (text.empty() ? "" : ", ") + std::string("data ");
        text += secret ? "hidden" : Shortened(command.data);
    }
    return text.empty() ? "no status, no data" : text;
}

std::string TellRequest(const TranscriptEntry& entry) {
    return "The module asks for " + Describe(entry.command) +
           ". Answer: " + (entry.answer.empty() ? "none" : Outcome(entry.given));
}

std::string TellReturned(const TranscriptEntry& entry) {
    return "The module answers " + Describe(entry.command) + ": " + Outcome(entry.command) +
           (entry.result == "false" ? ", refused" : "");
}

struct StepSentence {
    std::string_view step;
    const char* sentence;
};

constexpr auto kSteps = std::to_array<StepSentence>({
    {"dlopen", "The library is loaded"},
    {"dlsym", "Its four functions are found"},
    {"EM_GetModuleName", "It has told its name"},
    {"EM_Create", "The module is created"},
    {"GetProperties", "The module has described itself"},
    {"SetServerCabinetNumber", "The module knows the server's cabinet number"},
    {"Start", "The module is started"},
    {"Notify", "The module has been notified"},
    {"OnSwitchStarted", "The module knows that the agent runs"},
    {"Stop", "The module is stopped"},
    {"EM_Delete", "The module is deleted"},
    {"dlclose", "The library is closed"},
    {"unmapped", "The library is gone from memory"},
});

std::string TellStep(const TranscriptEntry& entry) {
    const auto* known = std::ranges::find(kSteps, std::string_view(entry.step), &StepSentence::step);
    const bool failed = entry.result == "false";
    return (failed || known == kSteps.end() ? entry.step : known->sentence) + (failed ? " FAILED" : "") +
           (entry.note.empty() ? "" : " (" + entry.note + ")");
}

struct Teller {
    const char* kind;
    std::string (*tell)(const TranscriptEntry&);
};

constexpr auto kTellers = std::to_array<Teller>({
    {"sync-request", TellRequest},
    {"async-request",
     [](const TranscriptEntry& s) { return "The module asks for " + Describe(s.command) + " and does not wait"; }},
    {"reply",
     [](const TranscriptEntry& s) {
         return "The module replies to " + Describe(s.command) + ": " + Outcome(s.command);
     }},
    {"event",
     [](const TranscriptEntry& s) {
         return "The module fires the event " + Describe(s.command) + ": " + Outcome(s.command);
     }},
    {"forward-event",
     [](const TranscriptEntry& s) { return "The module forwards " + Describe(s.command) + " to " + s.note; }},
    {"returned", TellReturned},
    {"delivered",
     [](const TranscriptEntry& s) {
         return "The module has taken " + Describe(s.command) + ": " + Outcome(s.command);
     }},
    {"withheld",
     [](const TranscriptEntry& s) { return "Withheld, the module takes no events: " + Describe(s.command); }},
    {"tone", [](const TranscriptEntry& s) { return "The speaker has played " + s.note; }},
    {"enable-events", [](const TranscriptEntry& s) { return "The module " + s.step + "s its events"; }},
});

}  // namespace

std::string StatusText(std::uint32_t status) {
    const std::string name = NameOf(FindStatus(status));
    return "status " + std::to_string(status) + (name.empty() ? "" : " (" + name + ")");
}

std::string TellStory(const TranscriptEntry& entry, long long milliseconds) {
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%5lld.%03lld s  ", milliseconds / 1000, milliseconds % 1000);
    const auto teller = std::ranges::find(kTellers, std::string_view(entry.kind), &Teller::kind);
    return time.data() + (teller != kTellers.end() ? teller->tell : TellStep)(entry) + "\n";
}
