#include "agent/Story.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <string_view>

#include "agent/Transcript.h"

namespace {

struct Name {
    std::uint32_t code;
    const char* text;
};

constexpr std::uint32_t kReadValue = 0xE001;
constexpr std::uint32_t kWriteValue = 0xE002;
constexpr std::uint32_t kPassword = 0x0439;

constexpr auto kOperations = std::to_array<Name>({
    {0x0B21, "message template"},
    {0x0C00, "system data"},
    {0x1060, "send mail"},
    {0x2240, "pending alert"},
    {0x2241, "acknowledge alerts"},
    {0x2242, "send test mail"},
    {0x2243, "alerting supported"},
    {0x230F, "system status"},
    {0x2321, "component name"},
    {0x2322, "component status"},
    {0x2324, "component designation"},
    {0x3341, "update manager alert"},
    {kReadValue, "configuration value"},
    {kWriteValue, "change of configuration value"},
});

constexpr auto kValues = std::to_array<Name>({
    {0x0210, "asset tag"},
    {0x0400, "beep alert"},
    {0x0401, "beep warning sequence"},
    {0x0402, "beep error sequence"},
    {0x0410, "mail for status alert"},
    {0x0411, "mail alert severity"},
    {0x0412, "sender"},
    {0x0413, "sender description"},
    {0x0414, "recipients"},
    {0x0416, "mail alert subject"},
    {0x0417, "mail alert message"},
    {0x0418, "mail alert importance"},
    {0x0419, "recipients CC"},
    {0x041A, "update status subject"},
    {0x041B, "update status message"},
    {0x0420, "mail language"},
    {0x0421, "word for OK"},
    {0x0422, "word for warning"},
    {0x0423, "word for error"},
    {0x0424, "date"},
    {0x0425, "time"},
    {0x0430, "number of mail servers"},
    {0x0431, "mail server"},
    {0x0432, "mail server port"},
    {0x0436, "authentication type"},
    {0x0438, "user name"},
    {kPassword, "password"},
    {0x043A, "SMTPS"},
    {0x1270, "controller mail settings"},
    {0x1282, "controller mail server"},
    {0x1283, "controller mail server port"},
    {0x128E, "number of controller mail servers"},
    {0x1A4D, "mail for new updates"},
    {0x1A4E, "mail for finished updates"},
});

constexpr auto kStatuses = std::to_array<Name>({
    {0, "done"},
    {1, "not handled"},
    {2, "no such mail server"},
    {6, "failed"},
    {13, "exception"},
    {18, "mail data missing"},
    {19, "no value"},
    {20, "not for this server"},
    {22, "answer follows"},
    {24, "configuration file locked"},
    {255, "event"},
});

template <std::size_t Count>
std::string NameOf(const std::array<Name, Count>& names, std::uint32_t code) {
    const auto found = std::ranges::find(names, code, &Name::code);
    return found != names.end() ? found->text : "";
}

std::string Hex(std::uint32_t code) {
    std::array<char, 16> hex{};
    std::snprintf(hex.data(), hex.size(), "0x%04X", code);
    return hex.data();
}

bool IsValueAccess(const Command& command) {
    const std::uint32_t operation = command.oc.value_or(0);
    return operation == kReadValue || operation == kWriteValue;
}

std::string Describe(const Command& command) {
    if (!command.oc) {
        return "a message without operation code";
    }
    const std::string operation = NameOf(kOperations, *command.oc);
    const std::uint32_t extension = command.oe.value_or(0);
    const std::string value = IsValueAccess(command) ? NameOf(kValues, extension) : "";
    std::string text = (operation.empty() ? "operation" : operation) + (value.empty() ? "" : " \"" + value + "\"") +
                       " (" + Hex(*command.oc) + (extension != 0 ? "-" + Hex(extension) : "") + ")";
    if (command.oi.value_or(0) != 0) {
        text += ", object " + std::to_string(*command.oi);
    }
    return text;
}

// Status and data: what an answer adds to its request.
std::string Outcome(const Command& command) {
    constexpr std::size_t kLongest = 100;
    std::string text;
    if (command.st) {
        text = StatusText(*command.st);
    }
    if (!command.data.empty()) {
        const bool secret = IsValueAccess(command) && command.oe == kPassword;
        text += (text.empty() ? "" : ", ") + std::string("data ");
        text += secret                           ? "hidden"
                : command.data.size() > kLongest ? command.data.substr(0, kLongest) + "..."
                                                 : command.data;
    }
    return text.empty() ? "no status, no data" : text;
}

struct Scene {
    const TranscriptEntry& entry;
    const Command& command;
};

std::string TellRequest(const Scene& scene) {
    return "The module asks for " + Describe(scene.command) + ". Answer: " +
           (scene.entry.answer.empty() ? "none"
                                       : Outcome(CurrentCommand(scene.entry.answer, scene.entry.commandIndex)));
}

std::string TellReturned(const Scene& scene) {
    return "The module answers " + Describe(scene.command) + ": " + Outcome(scene.command) +
           (scene.entry.result == "false" ? ", refused" : "");
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

std::string TellStep(const Scene& scene) {
    const auto* known = std::ranges::find(kSteps, std::string_view(scene.entry.step), &StepSentence::step);
    const bool failed = scene.entry.result == "false";
    return (failed || known == kSteps.end() ? scene.entry.step : known->sentence) + (failed ? " FAILED" : "") +
           (scene.entry.note.empty() ? "" : " (" + scene.entry.note + ")");
}

struct Teller {
    const char* kind;
    std::string (*tell)(const Scene&);
};

constexpr auto kTellers = std::to_array<Teller>({
    {"sync-request", TellRequest},
    {"async-request",
     [](const Scene& s) { return "The module asks for " + Describe(s.command) + " and does not wait"; }},
    {"reply",
     [](const Scene& s) { return "The module replies to " + Describe(s.command) + ": " + Outcome(s.command); }},
    {"event",
     [](const Scene& s) { return "The module fires the event " + Describe(s.command) + ": " + Outcome(s.command); }},
    {"forward-event",
     [](const Scene& s) { return "The module forwards " + Describe(s.command) + " to " + s.entry.note; }},
    {"returned", TellReturned},
    {"delivered",
     [](const Scene& s) { return "The module has taken " + Describe(s.command) + ": " + Outcome(s.command); }},
    {"withheld", [](const Scene& s) { return "Withheld, the module takes no events: " + Describe(s.command); }},
    {"tone", [](const Scene& s) { return "The speaker has played " + s.entry.note; }},
    {"enable-events", [](const Scene& s) { return "The module " + s.entry.step + "s its events"; }},
});

}  // namespace

std::string StatusText(std::uint32_t status) {
    const std::string name = NameOf(kStatuses, status);
    return "status " + std::to_string(status) + (name.empty() ? "" : " (" + name + ")");
}

std::string TellStory(const TranscriptEntry& entry, const Command& command, long long milliseconds) {
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%5lld.%03lld s  ", milliseconds / 1000, milliseconds % 1000);
    const auto teller = std::ranges::find(kTellers, std::string_view(entry.kind), &Teller::kind);
    return time.data() + (teller != kTellers.end() ? teller->tell : TellStep)({.entry = entry, .command = command}) +
           "\n";
}
