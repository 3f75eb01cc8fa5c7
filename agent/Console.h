#pragma once

#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent/Agent.h"
#include "agent/AnswerTable.h"

/// The operator's prompt: one command a line, words with blanks in double quotes.
class CConsole {
public:
    CConsole(CAgent& agent, CAnswerTable& answers, std::ostream& out) : agent_(agent), answers_(answers), out_(out) {}

    /// Runs until "quit" or the end of the input.
    void Run(std::istream& in);

private:
    using Arguments = std::span<const std::string>;
    struct Entry;
    static std::span<const Entry> Entries();
    static std::vector<std::string> SplitWords(std::string_view line);
    void Execute(std::string_view line);

    void Status(Arguments arguments);
    void Pending(Arguments arguments);
    void Acknowledge(Arguments arguments);
    void Help(Arguments arguments);
    void Quit(Arguments arguments);
    void SendRequest(std::uint32_t operation);

    CAgent& agent_;
    CAnswerTable& answers_;
    std::ostream& out_;
    bool quit_ = false;
};
