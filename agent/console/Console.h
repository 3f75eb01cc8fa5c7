#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/console/ConsoleSettings.h"
#include "agent/console/ConsoleTerminal.h"
#include "agent/core/Agent.h"
#include "agent/core/AnswerTable.h"

/// The operator's prompt: one command a line, words with blanks in double quotes. Each command is a row of one table.
class CConsole {
public:
    CConsole(CAgent& agent, CAnswerTable& answers, CIConsoleTerminal& terminal)
        : agent_(agent), answers_(answers), terminal_(terminal) {}

    /// Runs until "quit", the end of the input, or a signal that asks for the end.
    /// @throw std::runtime_error when the module could not be loaded again
    void Run();

    /// @return what may stand in place of the last word of an unfinished line
    static std::vector<std::string> Complete(std::string_view line);

private:
    using Arguments = std::span<const std::string>;
    struct Entry;
    static std::span<const Entry> Entries();
    static const Entry& FindEntry(std::string_view name);
    static std::vector<std::string> SplitWords(std::string_view line);
    void Execute(std::string_view line);
    void Say(const std::string& sentence);

    void Status(Arguments arguments);
    void Pending(Arguments arguments);
    void Acknowledge(Arguments arguments);
    void TestMail(Arguments arguments);
    void SendMail(Arguments arguments);
    void Get(Arguments arguments);
    void Set(Arguments arguments);
    void Setting(Arguments arguments);
    void Supported(Arguments arguments);
    void Trace(Arguments arguments);
    void Help(Arguments arguments);
    void Quit(Arguments arguments);

    /// Sends a request to the module and waits for the answer, or for the reply that follows.
    /// @throw CAgentError when there was none in time
    Command Ask(Command request);
    std::uint32_t ComponentId(const std::string& name);
    std::string MailServerValue(const ConsoleSetting& setting, std::uint32_t server);
    std::string AlertValue(const ConsoleSetting& setting) const;

    CAgent& agent_;
    CAnswerTable& answers_;
    CIConsoleTerminal& terminal_;
    std::vector<std::string> components_;  // an object id is a place in here, counted from 1
    bool quit_ = false;
};
