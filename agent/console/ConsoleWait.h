#pragma once

#include <array>
#include <csignal>

#include "platform/files/UniqueFd.h"

/// What the console waits for: input, a thread that wakes it, and signals. While the object lives, SIGINT, SIGTERM and
/// SIGHUP ask the console to end in good order; a second one of the same kind ends the program at once. One object at a
/// time.
class CConsoleWait {
public:
    /// @throw CAgentError when the system refuses a descriptor
    CConsoleWait();
    /// Signals do what they did before.
    ~CConsoleWait();
    CConsoleWait(const CConsoleWait&) = delete;
    CConsoleWait& operator=(const CConsoleWait&) = delete;
    CConsoleWait(CConsoleWait&&) = delete;
    CConsoleWait& operator=(CConsoleWait&&) = delete;

    /// Waits until standard input can be read (or has ended), somebody wakes the console, or a signal comes.
    /// @return true when there is input; input has precedence over all but the wish to end
    bool ForInput();

    /// Ends the wait that is going on, or else the next one. Any thread.
    void Wake() const noexcept;

    /// True once a signal asked for the end.
    static bool EndIsAskedFor();

    /// True once after the terminal was given back to the program, or has changed its size.
    static bool TakeTerminalChange();

private:
    static constexpr std::array<int, 5> kSignals = {SIGINT, SIGTERM, SIGHUP, SIGCONT, SIGWINCH};

    CUniqueFd wakeUps_;
    std::array<struct sigaction, kSignals.size()> before_{};
};
