#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

#include "agent/console/Console.h"
#include "agent/core/Story.h"
#include "agent/core/TraceSink.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

namespace {

using std::chrono::milliseconds;

// The module tries two servers, and each may take its time.
constexpr std::chrono::minutes kLongestAnswer{5};
// How soon a signal ends the wait for an answer.
constexpr milliseconds kSignalInterval{100};

constexpr std::uint32_t kServers = 2;
constexpr std::uint32_t kHighestTraceLevel = 5;

struct MailResult {
    std::string_view testMail;  // as the replies of the two requests tell it
    std::string_view sendMail;
    const char* words;
};

// The general failure of a test mail comes last: one number stands for many.
constexpr auto kMailResults = std::to_array<MailResult>({
    {"0", "0", "The mail was sent."},
    {"9", "6", "The mail was not sent: the name of the mail server is not known (set host)."},
    {"10", "7", "The mail was not sent: no mail server could be reached (set host, set port)."},
    {"11", "8", "The mail was not sent: what answered is no mail server, or it takes no mails now (set port)."},
    {"18", "28", "The mail was not sent: the mail server did not answer in time."},
    {"", "55", "The mail was not sent: the mail server refused the sender, the recipients or the mail."},
    {"", "60", "The mail was not sent: the mail server's certificate is not trusted."},
    {"", "67", "The mail was not sent: the mail server refused the log-in (set user, set password)."},
    {"", "-1", "The mail was not sent: no mail server is set up (set host)."},
    {"4294967295", "", "The mail was not sent: it could not be composed."},
    {"1", "",
     "The mail was not sent: no mail server is set up, or none took the mail (sender, recipients, log-in or "
     "certificate)."},
});

std::string MailWords(std::string_view MailResult::*number, std::string_view result) {
    const auto found = std::ranges::find(kMailResults, result, number);
    return found != kMailResults.end() ? found->words : "The mail was not sent: result " + std::string(result) + ".";
}

Command MakeCommand(std::uint32_t operation, std::uint32_t extension = 0, std::string data = {}) {
    Command command;
    command.oc = operation;
    if (extension != 0) {
        command.oe = extension;
    }
    command.data = std::move(data);
    return command;
}

// An answer for one object; the system status and the settings have none.
Command MakeAnswer(std::uint32_t operation, std::uint32_t object, std::string data) {
    Command answer = MakeCommand(operation, 0, std::move(data));
    if (object != 0) {
        answer.oi = object;
    }
    return answer;
}

void ParseMessage(const Command& command, SipJson& message) {
    const std::string text = MessageText(command);
    if (!message.Parse(text.data(), text.size())) {
        throw CAgentError("The message cannot be built.");
    }
}

void CheckDone(const Command& answer) {
    if (answer.st != kDone) {
        throw CAgentError("The module answered with " + StatusText(answer.st.value_or(kValueNotAvailable)) + ".");
    }
}

std::string TitleOf(const ConsoleSetting& setting, std::uint32_t server) {
    return std::string(setting.name) + (setting.IsPerServer() ? " " + std::to_string(server) : "");
}

std::string Line(const std::string& title, const std::string& value) {
    std::string line = title;
    line.resize(std::max<std::size_t>(line.size(), 18), ' ');
    return line + value + "\n";
}

// Takes the server's number off the words behind a setting's name.
std::uint32_t TakeServer(const ConsoleSetting& setting, std::span<const std::string>& words) {
    if (!setting.IsPerServer()) {
        return 0;
    }
    const auto server = words.empty() ? std::nullopt : ParseNumber(words[0]);
    if (!server || *server < 1 || *server > kServers) {
        const std::string name(setting.name);
        throw CAgentError(name + " belongs to a mail server, so say which, 1 or 2: " + name + " 1");
    }
    words = words.subspan(1);
    return *server;
}

Command ServerValueRequest(std::uint32_t operation, const ConsoleSetting& setting, std::uint32_t server) {
    Command request = MakeCommand(operation, setting.id);
    if (setting.IsPerServer()) {
        request.oi = server - 1;
    }
    return request;
}

}  // namespace

Command CConsole::Ask(Command request) {
    request.ca = agent_.Cabinet();
    TranscriptPattern reply{.kind = "reply", .step = {}, .command = MakeCommand(*request.oc)};
    while (agent_.Await(reply, milliseconds(0))) {
        // a late reply to an earlier request
    }
    SipJson message;
    ParseMessage(request, message);
    agent_.Request(message);
    Command answer = CurrentCommand(MessageText(message), message.GetCmdIndex());
    if (answer.st != kAnswerFollows) {
        return answer;
    }
    const auto deadline = CTranscript::Clock::now() + kLongestAnswer;
    while (CTranscript::Clock::now() < deadline && !CConsoleWait::EndIsAskedFor()) {
        if (auto found = agent_.Await(reply, kSignalInterval)) {
            return *found;
        }
    }
    throw CAgentError("The module has not answered.");
}

std::uint32_t CConsole::ComponentId(const std::string& name) {
    auto found = std::ranges::find(components_, name);
    if (found == components_.end()) {
        found = components_.insert(found, name);
    }
    return static_cast<std::uint32_t>(found - components_.begin()) + 1;
}

void CConsole::Status(Arguments arguments) {
    constexpr std::array<const char*, 3> kWords = {"OK", "warning", "error"};
    const auto status = ParseNumber(arguments[0]);
    if (!status || *status < 1 || *status > kWords.size()) {
        throw CAgentError("The status is 1 (OK), 2 (warning) or 3 (error).");
    }
    const std::string number = std::to_string(*status);
    const std::uint32_t component = ComponentId(arguments[1]);
    answers_.Set(MakeAnswer(kReadSystemStatus, 0, number));
    answers_.Set(MakeAnswer(kReadComponentName, component, JsonString(arguments[1])));
    answers_.Set(MakeAnswer(kReadComponentDesignation, component, JsonString(arguments[2])));

    Command event = MakeAnswer(CM_StatusTreeComponentInstanceStatus, component, number);
    event.ca = agent_.Cabinet();
    event.st = kEvent;
    SipJson message;
    ParseMessage(event, message);
    agent_.SendEvent(message);
    Say("The status of \"" + arguments[1] + "\" and of the server is now " + number + " (" + kWords.at(*status - 1) +
        ").");
}

void CConsole::Pending(Arguments /*arguments*/) {
    const Command answer = Ask(MakeCommand(kPendingAlert));
    CheckDone(answer);
    Say(answer.data == "0" ? "No alert is pending." : "An alert is pending. \"ack\" acknowledges it.");
}

void CConsole::Acknowledge(Arguments /*arguments*/) {
    const TranscriptPattern event{.kind = "event", .step = {}, .command = MakeCommand(kAcknowledgeAlerts)};
    while (agent_.Await(event, milliseconds(0))) {
        // of an earlier acknowledgement
    }
    CheckDone(Ask(MakeCommand(kAcknowledgeAlerts)));
    // The module answers the same either way; the event comes before the answer.
    Say(agent_.Await(event, milliseconds(0)) ? "The pending alerts are acknowledged: the speaker is silent."
                                             : "No alert was pending.");
}

void CConsole::TestMail(Arguments arguments) {
    constexpr std::uint32_t kUpdateMail = 1;
    if (!arguments.empty() && arguments[0] != "update") {
        throw CAgentError("It goes: test-mail (about a status) or: test-mail update (about updates).");
    }
    const Command answer = Ask(MakeCommand(CM_AlerterSendTestMail, arguments.empty() ? 0 : kUpdateMail));
    CheckDone(answer);
    Say(MailWords(&MailResult::testMail, answer.data));
}

void CConsole::SendMail(Arguments arguments) {
    std::ifstream file(arguments[0]);
    const std::string mail{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (mail.empty()) {
        throw CAgentError("There is no mail in \"" + arguments[0] + "\": it is empty or cannot be read.");
    }
    const Command answer = Ask(MakeCommand(CM_SendMail, 0, JsonString(mail)));
    if (answer.st == kMissingMailData) {
        throw CAgentError("The mail has no sender: it needs a line such as \"From: alerts@example.net\".");
    }
    if (answer.st != kFailed) {
        CheckDone(answer);
    }
    Say(MailWords(&MailResult::sendMail, answer.data));
}

std::string CConsole::MailServerValue(const ConsoleSetting& setting, std::uint32_t server) {
    const Command answer = Ask(ServerValueRequest(kReadConfigurationValue, setting, server));
    if (answer.st == kValueNotAvailable) {
        return "(not set)";
    }
    CheckDone(answer);
    return ShowSetting(setting, answer.data);
}

void CConsole::Get(Arguments arguments) {
    std::string text;
    if (!arguments.empty()) {
        const ConsoleSetting& setting = FindSetting(MailServerSettings(), arguments[0]);
        Arguments rest = arguments.subspan(1);
        const std::uint32_t server = TakeServer(setting, rest);
        if (!rest.empty()) {
            throw CAgentError(arguments[0] + " is the same for both mail servers: get " + arguments[0]);
        }
        text = Line(TitleOf(setting, server), MailServerValue(setting, server));
    } else {
        for (std::uint32_t server = 0; server <= kServers; ++server) {
            for (const ConsoleSetting& setting : MailServerSettings()) {
                if (setting.IsPerServer() == (server != 0)) {
                    text += Line(TitleOf(setting, server), MailServerValue(setting, server));
                }
            }
        }
    }
    terminal_.Print(text);
}

void CConsole::Set(Arguments arguments) {
    const ConsoleSetting& setting = FindSetting(MailServerSettings(), arguments[0]);
    if (setting.isReadOnly) {
        throw CAgentError(arguments[0] + " cannot be set: the module counts them.");
    }
    Arguments value = arguments.subspan(1);
    const std::uint32_t server = TakeServer(setting, value);
    if (value.empty()) {
        throw CAgentError("The value is missing: set " + TitleOf(setting, server) + " VALUE");
    }
    Command request = ServerValueRequest(kWriteConfigurationValue, setting, server);
    request.data = SettingData(setting, value);
    CheckDone(Ask(request));
    terminal_.Print(Line(TitleOf(setting, server), ShowSetting(setting, request.data)));
}

std::string CConsole::AlertValue(const ConsoleSetting& setting) const {
    const std::string answered = answers_.Answer(MessageText(MakeCommand(kReadConfigurationValue, setting.id)), 0);
    const Command answer = CurrentCommand(answered, 0);
    return answer.data.empty() ? "(not set)" : ShowSetting(setting, answer.data);
}

void CConsole::Setting(Arguments arguments) {
    std::string text;
    if (arguments.empty()) {
        for (const ConsoleSetting& setting : AlertSettings()) {
            text += Line(TitleOf(setting, 0), AlertValue(setting));
        }
        terminal_.Print(text);
        return;
    }
    const ConsoleSetting& setting = FindSetting(AlertSettings(), arguments[0]);
    if (arguments.size() > 1) {
        const std::string data = SettingData(setting, arguments.subspan(1));
        answers_.Set(MakeCommand(kReadConfigurationValue, setting.id, data));
        Command notice = MakeCommand(kWriteConfigurationValue, setting.id, data);
        notice.ca = agent_.Cabinet();
        SipJson message;
        ParseMessage(notice, message);
        agent_.SendNotice(message);
    }
    terminal_.Print(Line(TitleOf(setting, 0), AlertValue(setting)));
}

void CConsole::Supported(Arguments /*arguments*/) {
    constexpr std::array<const char*, 2> kKinds = {"status", "updates"};
    for (std::uint32_t kind = 0; kind < kKinds.size(); ++kind) {
        const Command answer = Ask(MakeCommand(CM_AlerterAlertSupported, kind));
        if (answer.st != kNotHandled) {
            CheckDone(answer);
        }
        const bool supported = answer.st == kDone && answer.data == "1";
        Say(std::string("Alerts about ") + kKinds.at(kind) + (supported ? " are supported." : " are not supported."));
    }
}

void CConsole::Trace(Arguments arguments) {
    if (arguments[0] == "on" || arguments[0] == "off") {
        Debug.Show(arguments[0] == "on");
        Say(arguments[0] == "on" ? "Traces are shown." : "Traces are hidden.");
        return;
    }
    const auto level = ParseNumber(arguments[0]);
    if (!level || *level > kHighestTraceLevel) {
        throw CAgentError("The trace level is a number from 0 (none) to 5 (device detail); or say on or off.");
    }
    const bool unloaded = agent_.Unload();
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the module's threads have ended
    ::setenv("LUME_LOG_DEBUG_LEVEL", std::to_string(*level).c_str(), 1);
    Debug.Show(true);
    if (!unloaded || !agent_.Load()) {
        throw std::runtime_error("the module could not be loaded again");
    }
    Say("The module is loaded again, with trace level " + std::to_string(*level) + "; no alert is pending any more.");
}
