#include "agent/console/Console.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>

namespace {

// Long enough for a quick answer to be seen before the next prompt.
constexpr std::chrono::milliseconds kSettleTime{50};

constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();

constexpr std::string_view kFirstSteps = R"(
First steps, with two mail servers:
  set host 1 mail.example.net           then: set port 1 25, and the same for server 2
  set sender alerts@example.net         then: set sender-name Alerts
  set recipients anna@example.net bert@example.net
  get                                   shows what is set
  test-mail                             the servers are tried in turn
  setting beep on                       then: setting mail on
  status 3 "Fan 1" "CPU 1 fan"          an error: the speaker sounds and a mail goes out
  pending                               the alert is pending until
  ack                                   it is acknowledged: the speaker stops
"help COMMAND" tells more.
)";

std::string Padded(std::string_view text, std::size_t width) {
    std::string padded(text);
    padded.resize(std::max(padded.size(), width), ' ');
    return padded + "  ";
}

std::string ListSettings(std::span<const ConsoleSetting> settings) {
    std::string list;
    for (const ConsoleSetting& setting : settings) {
        list += "  " + Padded(std::string(setting.name) + (setting.IsPerServer() ? " 1|2" : ""), 18) +
                std::string(setting.meaning) + "\n";
    }
    return list;
}

std::string MailServerList() {
    return ListSettings(MailServerSettings());
}

std::string AlertList() {
    return ListSettings(AlertSettings());
}

using Words = std::vector<std::string>;

Words Names(std::span<const ConsoleSetting> settings) {
    Words names;
    for (const ConsoleSetting& setting : settings) {
        names.emplace_back(setting.name);
    }
    return names;
}

// What may follow a setting's name: a server where it needs one, and a value.
Words AfterName(std::span<const ConsoleSetting> settings, std::span<const std::string> before, bool withValue) {
    if (before.empty()) {
        return Names(settings);
    }
    const auto found = std::ranges::find(settings, before[0], &ConsoleSetting::name);
    if (found == settings.end()) {
        return {};
    }
    if (found->IsPerServer() && before.size() == 1) {
        return {"1", "2"};
    }
    const bool isNext = before.size() == (found->IsPerServer() ? 2U : 1U);
    return withValue && isNext ? SettingValues(*found) : Words();
}

Words CompleteGet(std::span<const std::string> before) {
    return AfterName(MailServerSettings(), before, false);
}

Words CompleteSet(std::span<const std::string> before) {
    return AfterName(MailServerSettings(), before, true);
}

Words CompleteSetting(std::span<const std::string> before) {
    return AfterName(AlertSettings(), before, true);
}

Words CompleteTestMail(std::span<const std::string> before) {
    return before.empty() ? Words{"update"} : Words();
}

Words CompleteTrace(std::span<const std::string> before) {
    return before.empty() ? Words{"on", "off"} : Words();
}

}  // namespace

struct CConsole::Entry {
    std::string_view name;
    std::size_t fewest;  // arguments
    std::size_t most;
    std::string_view usage;
    std::string_view help;
    void (CConsole::*run)(Arguments);
    Words (*complete)(Arguments before);
    std::string_view more;  // for "help COMMAND"
    std::string (*list)();
};

std::span<const CConsole::Entry> CConsole::Entries() {
    static constexpr auto kEntries = std::to_array<Entry>({
        {"status", 3, 3, R"(status 1|2|3 "NAME" "DESIGNATION")",
         "a component is OK (1), in warning (2) or in error (3)", &CConsole::Status, nullptr,
         "The server's overall status becomes the same. 2 and 3 raise an alert, 1 clears the pending alerts.\n"
         "What happens at an alert is set by \"setting\"; what became of its mail is told by traces of level 2.\n"
         "Example: status 3 \"Fan 1\" \"CPU 1 fan\"\n",
         nullptr},
        {"pending", 0, 0, "pending", "is an alert pending?", &CConsole::Pending, nullptr, "", nullptr},
        {"ack", 0, 0, "ack", "acknowledge the pending alerts: the speaker stops", &CConsole::Acknowledge, nullptr, "",
         nullptr},
        {"test-mail", 0, 1, "test-mail [update]", "send a test mail about a status, or about updates",
         &CConsole::TestMail, CompleteTestMail, "It goes to the recipients that \"get\" shows.\n", nullptr},
        {"send-mail", 1, 1, "send-mail FILE", "send a mail as it stands in a file", &CConsole::SendMail, nullptr,
         "The file holds a whole mail: lines such as From:, To: and Subject:, an empty line, the text.\n", nullptr},
        {"get", 0, 2, "get [NAME [1|2]]", "show the mail-server settings, or one of them", &CConsole::Get, CompleteGet,
         "Settings with 1|2 belong to the first or the second mail server. The names:\n", MailServerList},
        {"set", 2, kAnyNumber, "set NAME [1|2] VALUE", "change a mail-server setting", &CConsole::Set, CompleteSet,
         "Settings with 1|2 belong to the first or the second mail server. \"\" empties a text. The names:\n",
         MailServerList},
        {"setting", 0, kAnyNumber, "setting [NAME [VALUE]]", "show or change what happens at an alert",
         &CConsole::Setting, CompleteSetting, "In mail texts \\n is a line break. The names:\n", AlertList},
        {"supported", 0, 0, "supported", "which alerts does the module support?", &CConsole::Supported, nullptr, "",
         nullptr},
        {"trace", 1, 1, "trace on|off|LEVEL", "show or hide traces; 1 errors to 5 device detail", &CConsole::Trace,
         CompleteTrace,
         "\"on\" and \"off\" show and hide what the module prints. The module takes its level only while it is\n"
         "loaded: \"trace 3\" stops it and loads it again with that level, and pending alerts are lost.\n",
         nullptr},
        {"help", 0, 1, "help [COMMAND]", "this list, or more about a command", &CConsole::Help,
         [](Arguments before) {
             Words names;
             for (const Entry& entry : Entries()) {
                 names.emplace_back(entry.name);
             }
             return before.empty() ? names : Words();
         },
         "", nullptr},
        {"quit", 0, 0, "quit", "stop the module and leave", &CConsole::Quit, nullptr, "", nullptr},
    });
    return kEntries;
}

void CConsole::Run() {
    Say("The module runs. Type \"help\" for the commands.");
    while (!quit_) {
        const auto line = terminal_.ReadLine();
        if (!line) {
            return;
        }
        try {
            Execute(*line);
        } catch (const CAgentError& error) {
            Say(error.what());
        }
        if (!quit_) {
            agent_.Work(kSettleTime);
        }
    }
}

void CConsole::Say(const std::string& sentence) {
    terminal_.Print(sentence + "\n");
}

const CConsole::Entry& CConsole::FindEntry(std::string_view name) {
    const auto entry = std::ranges::find(Entries(), name, &Entry::name);
    if (entry == Entries().end()) {
        throw CAgentError("There is no command \"" + std::string(name) + R"("; "help" lists the commands.)");
    }
    return *entry;
}

void CConsole::Execute(std::string_view line) {
    const std::vector<std::string> words = SplitWords(line);
    if (words.empty()) {
        return;
    }
    const Entry& entry = FindEntry(words[0]);
    const Arguments arguments = Arguments(words).subspan(1);
    if (arguments.size() < entry.fewest || arguments.size() > entry.most) {
        throw CAgentError("It goes: " + std::string(entry.usage) + " (" + std::string(entry.help) + ").");
    }
    (this->*entry.run)(arguments);
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
        throw CAgentError("A closing quotation mark is missing.");
    }
    return words;
}

std::vector<std::string> CConsole::Complete(std::string_view line) {
    const std::size_t start = line.find_last_of(' ') + 1;
    Words candidates;
    try {
        const Words before = SplitWords(line.substr(0, start));
        if (before.empty()) {
            for (const Entry& entry : Entries()) {
                candidates.emplace_back(entry.name);
            }
        } else if (const Entry& entry = FindEntry(before[0]); entry.complete != nullptr) {
            candidates = entry.complete(Arguments(before).subspan(1));
        }
    } catch (const CAgentError&) {
        return {};  // nothing fits a wrong line
    }
    std::erase_if(candidates, [&](const std::string& word) { return !word.starts_with(line.substr(start)); });
    return candidates;
}

void CConsole::Help(Arguments arguments) {
    std::string text;
    if (!arguments.empty()) {
        const Entry& entry = FindEntry(arguments[0]);
        text = std::string(entry.usage) + ": " + std::string(entry.help) + "\n" + std::string(entry.more) +
               (entry.list != nullptr ? entry.list() : "");
    } else {
        for (const Entry& entry : Entries()) {
            text += Padded(entry.usage, 36) + std::string(entry.help) + "\n";
        }
        text += kFirstSteps;
    }
    terminal_.Print(text);
}

void CConsole::Quit(Arguments /*arguments*/) {
    quit_ = true;
}
