// SPDX-License-Identifier: Apache-2.0
#include "command/commands/CommandTable.h"

#include <algorithm>
#include <array>
#include <limits>

#include "agent/settings/Settings.h"
#include "command/commands/CommandContext.h"
#include "command/commands/Console.h"

namespace {

using Row = CommandRow;
using Needs = Row::Needs;
using Words = Row::Words;
using Before = std::span<const std::string>;

constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();

std::string Padded(std::string_view text, std::size_t width) {
    std::string padded(text);
    padded.resize(std::max(padded.size(), width), ' ');
    return padded + "  ";
}

std::string ListSettings(std::span<const OperatorSetting> settings) {
    std::string list;
    for (const OperatorSetting& setting : settings) {
        list += "  " + Padded(std::string(setting.name) + (setting.IsPerServer() ? " 1|2" : ""), 18) +
                std::string(setting.meaning) + "\n";
    }
    return list;
}

// What may follow a setting's name: a server where it needs one, and a value.
Words AfterName(std::span<const OperatorSetting> settings, Before before, bool withValue) {
    if (before.empty()) {
        Words names;
        for (const OperatorSetting& setting : settings) {
            names.emplace_back(setting.name);
        }
        return names;
    }
    const auto found = std::ranges::find(settings, before[0], &OperatorSetting::name);
    if (found == settings.end()) {
        return {};
    }
    if (found->IsPerServer() && before.size() == 1) {
        return {"1", "2"};
    }
    const bool isNext = before.size() == (found->IsPerServer() ? 2U : 1U);
    return withValue && isNext ? SettingValues(*found) : Words();
}

Words CommandNames(Before before) {
    Words names;
    for (const Row& row : CommandTable()) {
        names.emplace_back(row.name);
    }
    return before.empty() ? names : Words();
}

Words CompleteGet(Before before) {
    return AfterName(MailServerSettings(), before, false);
}

Words CompleteSet(Before before) {
    return AfterName(MailServerSettings(), before, true);
}

Words CompleteSetting(Before before) {
    return AfterName(AlertSettings(), before, true);
}

Words CompleteReset(Before before) {
    return AfterName(AlertSettings(), before, false);
}

Words CompleteMail(Before before) {
    return before.empty() ? Words{"update"} : Words();
}

Words CompleteTrace(Before before) {
    return before.empty() ? Words{"on", "off"} : Words();
}

Words CompleteSubmit(Before before) {
    return before.size() == 1 ? Words{"0", "1", "2", "3"} : Words();
}

constexpr auto kRows = std::to_array<Row>({
    {"status", "[1|2|3 NAME DESIGNATION]", "show the components and since when each is as it is", Needs::Module, 0, 3,
     Row::kNoOption, RunStatus, nullptr,
     "With a status it tells the module of a component: OK (1), in warning (2) or in error (3). The server's overall\n"
     "status becomes the same; 2 and 3 raise an alert, 1 clears the pending ones. \"setting\" says what happens then.\n"
     "A service knows better, and is told with \"submit\".\n"
     "Example: status 3 \"Fan 1\" \"CPU 1 fan\"\n",
     nullptr},
    {"pending", "", "list the pending alerts with time, severity and component", Needs::Module, 0, 0, Row::kNoOption,
     RunPending, nullptr, "", nullptr},
    {"ack", "", "acknowledge the pending alerts, so that the speaker stops", Needs::Module, 0, 0, Row::kNoOption,
     RunAcknowledge, nullptr, "", nullptr},
    {"test-mail", "[update] [--server 1|2] [-v]", "send a test mail about a status, or about updates", Needs::Module, 0,
     1, Row::kServer | Row::kVerbose, RunTestMail, CompleteMail,
     "It goes to the recipients that \"get\" shows, and is told server by server. With --server it goes through this\n"
     "one alone, so that the other one cannot hide that it is broken; with -v the dialogue is shown, without the\n"
     "credentials. Either is sent by this command itself, with the settings of the module.\n",
     nullptr},
    {"send-mail", "FILE|-", "send a mail as it stands in a file", Needs::Module, 1, 1, Row::kNoOption, RunSendMail,
     nullptr, "The file holds a whole mail: lines such as From:, To: and Subject:, an empty line, the text.\n",
     nullptr},
    {"preview", "[update] [--language N]", "show the mail that the templates make, without sending it", Needs::Module,
     0, 1, Row::kLanguage, RunPreview, CompleteMail,
     "It is shown as text and as on the wire. The language is a locale id: 1033 English, 1031 German.\n", nullptr},
    {"get", "[NAME [1|2]]", "show the mail settings, or one of them", Needs::Module, 0, 2, Row::kNoOption, RunGet,
     CompleteGet, "Settings with 1|2 belong to the first or the second mail server. The names:\n",
     [] { return ListSettings(MailServerSettings()); }},
    {"set", "NAME [1|2] VALUE", "change a mail setting", Needs::Module, 1, kAnyNumber, Row::kNoOption, RunSet,
     CompleteSet,
     "Settings with 1|2 belong to the first or the second mail server. \"\" empties a text. A password that is left\n"
     "out is asked for, or read from a pipe. The names:\n",
     [] { return ListSettings(MailServerSettings()); }},
    {"setting", "[NAME [VALUE]]", "show or change what happens at an alert", Needs::Module, 0, kAnyNumber,
     Row::kNoOption, RunSetting, CompleteSetting, "In mail texts \\n is a line break. The names:\n",
     [] { return ListSettings(AlertSettings()); }},
    {"reset", "NAME", "let the service's configuration say again what happens at an alert", Needs::Service, 1, 1,
     Row::kNoOption, RunReset, CompleteReset, "It takes back what \"setting\" has set.\n", nullptr},
    {"check-config", "[FILE]", "look for what would keep alerts from being mailed", Needs::Module, 0, 1, Row::kNoOption,
     RunCheckConfig, nullptr,
     "A line each: ok, or what is wrong and where. No mail is sent. FILE is another configuration of em-alertd than\n"
     "/etc/em-alert/em-alertd.toml, such as one that is to come.\n",
     nullptr},
    {"supported", "", "tell which alerts the module supports", Needs::Module, 0, 0, Row::kNoOption, RunSupported,
     nullptr, "", nullptr},
    {"submit", "NAME STATUS TEXT", "report a component's status to the service", Needs::Service, 3, 3, Row::kNoOption,
     RunSubmit, CompleteSubmit, "The status is that of a plugin: 0 OK, 1 warning, 2 critical, 3 unknown.\n", nullptr},
    {"check", "NAME", "have the service check a component now", Needs::Service, 1, 1, Row::kNoOption, RunCheck, nullptr,
     "", nullptr},
    {"watch", "", "show the components as they change", Needs::Service, 0, 0, Row::kNoOption, RunWatch, nullptr,
     "At a terminal the view is drawn anew; in a pipe there is a line for each change.\n", nullptr},
    {"trace", "on|off|LEVEL", "show or hide traces; 1 errors to 5 device detail", Needs::Console, 1, 1, Row::kNoOption,
     RunTrace, CompleteTrace,
     "\"on\" and \"off\" show and hide what the module prints. The module takes its level only while it is\n"
     "loaded: \"trace 3\" stops it and loads it again with that level, and pending alerts are lost.\n",
     nullptr},
    {"help", "[COMMAND]", "list the commands, or tell more about one", Needs::Nothing, 0, 1, Row::kNoOption, RunHelp,
     CommandNames, "", nullptr},
    {"quit", "", "stop the module and leave", Needs::Console, 0, 0, Row::kNoOption, RunQuit, nullptr, "", nullptr},
});

}  // namespace

const std::string_view kFirstSteps = R"(
First steps, to a mail in your mailbox:
  set host 1 mail.example.net           where it takes mails; port 25, unless "set port 1" says otherwise
  set sender alerts@example.net         then: set sender-name Alerts
  set recipients you@example.net        several with blanks between them
  test-mail                             tells what each mail server said
  setting mail on                       alerts are mailed from now on; "preview" shows how
  status 3 "Fan 1" "CPU 1 fan"          an error: a mail goes out, and with "setting beep on" the speaker sounds
  pending                               the alert is pending until
  ack                                   it is acknowledged
"help COMMAND" tells more.
)";

std::string CommandRow::Usage() const {
    return std::string(name) + (arguments.empty() ? "" : " ") + std::string(arguments);
}

std::span<const CommandRow> CommandTable() {
    return kRows;
}

const CommandRow& FindCommandRow(std::string_view name) {
    const auto* row = std::ranges::find(kRows, name, &Row::name);
    if (row == kRows.end()) {
        throw CUsageError("There is no command \"" + std::string(name) + R"("; "help" lists the commands.)");
    }
    return *row;
}

std::string CommandList() {
    std::string text;
    for (const Row& row : kRows) {
        text += Padded(row.Usage(), 38) + std::string(row.help) + "\n";
    }
    return text + std::string(kFirstSteps);
}

std::vector<std::string> CompleteLine(std::string_view line) {
    const std::size_t start = line.find_last_of(' ') + 1;
    Words candidates;
    try {
        const Words before = SplitWords(line.substr(0, start));
        if (before.empty()) {
            candidates = CommandNames({});
        } else if (const Row& row = FindCommandRow(before[0]); row.complete != nullptr) {
            candidates = row.complete(Before(before).subspan(1));
        }
    } catch (const CAgentError&) {
        return {};  // nothing fits a wrong line
    }
    std::erase_if(candidates, [&](const std::string& word) { return !word.starts_with(line.substr(start)); });
    return candidates;
}

std::vector<std::string> CompleteArguments(std::string_view line) {
    Words candidates = CompleteLine(line);
    if (line.find(' ') == std::string_view::npos) {
        std::erase_if(candidates, [](const std::string& name) { return FindCommandRow(name).needs == Needs::Console; });
    }
    return candidates;
}
