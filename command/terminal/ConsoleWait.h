// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <csignal>

#include "platform/files/UniqueFd.h"

/// What the command waits for: input, a thread that wakes it, and signals. While the object lives, SIGTERM and SIGHUP
/// ask for an end in good order, and so does SIGINT; for people who edit lines it is the second SIGINT in a row, the
/// first one is an interrupt. A signal that has asked for the end ends the program at once when it comes again. SIGHUP
/// has the trace file opened anew instead, where there is one. What stops or ends the program from the keyboard gives
/// the terminal back as it was. One object at a time.
class CConsoleWait {
public:
    struct Options {
        bool editsLines = false;
        bool hasTraceFile = false;
    };

    /// @throw CAgentError when the system refuses a descriptor
    explicit CConsoleWait(Options options);
    /// Signals do what they did before.
    ~CConsoleWait();
    CConsoleWait(const CConsoleWait&) = delete;
    CConsoleWait& operator=(const CConsoleWait&) = delete;
    CConsoleWait(CConsoleWait&&) = delete;
    CConsoleWait& operator=(CConsoleWait&&) = delete;

    /// Waits until standard input can be read (or has ended), somebody wakes the console, or a signal comes.
    /// @return true when there is input; input has precedence over all but signals
    bool ForInput();

    /// Ends the wait that is going on, or else the next one. Any thread.
    void Wake() const noexcept;

    /// True once a signal asked for the end.
    static bool EndIsAskedFor();

    /// True once after an interrupt.
    static bool TakeInterrupt();

    /// A line begins, or something was typed: the next SIGINT is the first one again.
    static void ForgetInterrupts();

    /// True once after the terminal was given back to the program, or has changed its size.
    static bool TakeTerminalChange();

private:
    static constexpr std::array<int, 7> kSignals = {SIGINT, SIGTERM, SIGHUP, SIGCONT, SIGWINCH, SIGTSTP, SIGQUIT};

    CUniqueFd wakeUps_;
    std::array<struct sigaction, kSignals.size()> before_{};
};
