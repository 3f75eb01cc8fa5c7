#include "agent/Console.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <iomanip>
#include <istream>
#include <ostream>

#include "sip/SipJson.h"

namespace {

constexpr std::uint32_t kSystemStatus = 0x230F;
constexpr std::uint32_t kComponentName = 0x2321;
constexpr std::uint32_t kComponentStatus = 0x2322;
constexpr std::uint32_t kComponentDesignation = 0x2324;
constexpr std::uint32_t kPendingAlerts = 0x2240;
constexpr std::uint32_t kAcknowledgeAlerts = 0x2241;
constexpr std::uint32_t kEventStatus = 255;

// Long enough for a quick answer to be seen before the next prompt.
constexpr std::chrono::milliseconds kSettleTime{50};

Command MakeCommand(std::uint32_t operation, std::string data = {}) {
    Command command;
    command.oc = operation;
    command.data = std::move(data);
    return command;
}

}  // namespace

struct CConsole::Entry {
    std::string_view name;
    std::size_t arguments;
    std::string_view usage;
    std::string_view help;
    void (CConsole::*run)(Arguments);
};

std::span<const CConsole::Entry> CConsole::Entries() {
    static constexpr std::array<Entry, 5> kEntries = {
        {{"status", 3, R"(status ST "NAME" "DESIGNATION")", "a component's status changes: 1 OK, 2 warning, 3 error",
          &CConsole::Status},
         {"pending", 0, "pending", "ask whether an alert is pending", &CConsole::Pending},
         {"ack", 0, "ack", "acknowledge the pending alerts", &CConsole::Acknowledge},
         {"help", 0, "help", "this list", &CConsole::Help},
         {"quit", 0, "quit", "stop the module and leave", &CConsole::Quit}}};
    return kEntries;
}

void CConsole::Run(std::istream& in) {
    out_ << "Type \"help\" for the commands.\n";
    std::string line;
    while (!quit_ && (out_ << "> " << std::flush) && std::getline(in, line)) {
        try {
            Execute(line);
        } catch (const CAgentError& error) {
            out_ << error.what() << '\n';
        }
        agent_.Work(kSettleTime);
    }
}

void CConsole::Execute(std::string_view line) {
    const std::vector<std::string> words = SplitWords(line);
    if (words.empty()) {
        return;
    }
    const auto entries = Entries();
    const auto entry = std::ranges::find(entries, std::string_view(words[0]), &Entry::name);
    if (entry == entries.end()) {
        throw CAgentError("no command " + words[0] + "; \"help\" lists them");
    }
    const Arguments arguments = Arguments(words).subspan(1);
    if (arguments.size() != entry->arguments) {
        throw CAgentError("usage: " + std::string(entry->usage));
    }
    (this->*entry->run)(arguments);
}

std::vector<std::string> CConsole::SplitWords(std::string_view line) {
    std::vector<std::string> words;
    bool quoted = false;
    bool inWord = false;
    for (const char c : line) {
        const bool blank = c == ' ' || c == '\t' || c == '\r';
        if (blank && !quoted) {
            inWord = false;
            continue;
        }
        if (!inWord) {
            words.emplace_back();
            inWord = true;
        }
        if (c == '"') {
            quoted = !quoted;
        } else {
            words.back() += c;
        }
    }
    if (quoted) {
        throw CAgentError("a closing quotation mark is missing");
    }
    return words;
}

void CConsole::Status(Arguments arguments) {
    const auto status = ParseNumber(arguments[0]);
    if (!status) {
        throw CAgentError("the status is a number: 1 OK, 2 warning, 3 error");
    }
    const std::string number = std::to_string(*status);
    answers_.Set(MakeCommand(kSystemStatus, number));
    answers_.Set(MakeCommand(kComponentName, JsonString(arguments[1])));
    answers_.Set(MakeCommand(kComponentDesignation, JsonString(arguments[2])));

    Command event = MakeCommand(kComponentStatus, number);
    event.ca = agent_.Cabinet();
    event.st = kEventStatus;
    const std::string text = MessageText(event);
    SipJson message;
    message.Parse(text.data(), text.size());
    agent_.SendEvent(message);
}

void CConsole::SendRequest(std::uint32_t operation) {
    SipJson message;
    message.SetCmd(message.GetCmd(), operation, 0, 0, agent_.Cabinet(), UINT32_MAX);
    agent_.Request(message);
}

void CConsole::Pending(Arguments /*arguments*/) {
    SendRequest(kPendingAlerts);
}

void CConsole::Acknowledge(Arguments /*arguments*/) {
    SendRequest(kAcknowledgeAlerts);
}

void CConsole::Help(Arguments /*arguments*/) {
    for (const Entry& entry : Entries()) {
        out_ << std::left << std::setw(36) << entry.usage << entry.help << '\n';
    }
}

void CConsole::Quit(Arguments /*arguments*/) {
    quit_ = true;
}
