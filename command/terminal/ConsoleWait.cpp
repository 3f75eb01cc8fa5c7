// SPDX-License-Identifier: Apache-2.0
#include "command/terminal/ConsoleWait.h"

#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

#include "agent/core/Json.h"
#include "agent/traces/TraceSink.h"

namespace {

// For the signal handler.
volatile std::sig_atomic_t endIsAskedFor = 0;
volatile std::sig_atomic_t interrupted = 0;
volatile std::sig_atomic_t interruptsInARow = 0;
volatile std::sig_atomic_t editsLines = 0;
volatile std::sig_atomic_t hasTraceFile = 0;
volatile std::sig_atomic_t terminalHasChanged = 0;
volatile std::sig_atomic_t wakeUpDescriptor = -1;
volatile std::sig_atomic_t readsTerminal = 0;
termios terminalBefore;  // never written while a handler may run

void AddWakeUp(int descriptor) {
    const int errorBefore = errno;
    const eventfd_t one = 1;
    // It fails only when the count is full, and then the console wakes up anyway.
    [[maybe_unused]] const ssize_t written = ::write(descriptor, &one, sizeof one);
    errno = errorBefore;
}

// Stops or ends the program, and leaves the terminal as it was found: it may be without echo. In the background it is
// somebody else's. A process group without a shell cannot be stopped, and goes on at once.
void LeaveTerminal(int signal) {
    const int errorBefore = errno;
    const pid_t foreground = ::tcgetpgrp(STDIN_FILENO);  // -1 when it is not the controlling terminal
    if (readsTerminal != 0 && (foreground < 0 || foreground == ::getpgrp())) {
        ::tcsetattr(STDIN_FILENO, TCSANOW, &terminalBefore);
    }
    struct sigaction ours {};
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    ::sigaction(signal, &byDefault, &ours);
    ::raise(signal);  // waits for the end of its handler, unless it is let through
    sigset_t own;
    ::sigemptyset(&own);
    ::sigaddset(&own, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &own, nullptr);
    ::sigaction(signal, &ours, nullptr);
    errno = errorBefore;
}

void OnSignal(int signal) {
    if (signal == SIGTSTP || signal == SIGQUIT) {
        LeaveTerminal(signal);
        terminalHasChanged = 1;
    } else if (signal == SIGCONT || signal == SIGWINCH) {
        terminalHasChanged = 1;
    } else if (signal == SIGHUP && hasTraceFile != 0) {
        Debug.ReopenFile();
    } else if (signal == SIGINT && editsLines != 0 && interruptsInARow == 0) {
        interrupted = 1;
        interruptsInARow = 1;
    } else {
        endIsAskedFor = 1;
        ::signal(signal, SIG_DFL);
    }
    AddWakeUp(wakeUpDescriptor);
}

}  // namespace

CConsoleWait::CConsoleWait(Options options) : wakeUps_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wakeUps_) {
        throw CAgentError("no event descriptor: " + std::generic_category().message(errno));
    }
    endIsAskedFor = 0;
    interrupted = 0;
    interruptsInARow = 0;
    editsLines = options.editsLines ? 1 : 0;
    hasTraceFile = options.hasTraceFile ? 1 : 0;
    wakeUpDescriptor = wakeUps_.Get();
    readsTerminal = ::tcgetattr(STDIN_FILENO, &terminalBefore) == 0 ? 1 : 0;
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        const int signal = kSignals.at(i);
        struct sigaction action {};
        action.sa_handler = OnSignal;
        action.sa_flags = SA_RESTART;
        ::sigaction(signal, &action, &before_.at(i));
        if ((signal == SIGTSTP || signal == SIGQUIT) && before_.at(i).sa_handler == SIG_IGN) {
            ::sigaction(signal, &before_.at(i), nullptr);
        }
    }
}

CConsoleWait::~CConsoleWait() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        ::sigaction(kSignals.at(i), &before_.at(i), nullptr);
    }
    wakeUpDescriptor = -1;
}

bool CConsoleWait::ForInput() {
    std::array<pollfd, 2> polled = {
        {{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0}, {.fd = wakeUps_.Get(), .events = POLLIN, .revents = 0}}};
    while (::poll(polled.data(), polled.size(), -1) < 0) {
        if (errno != EINTR) {
            return true;  // reading tells what is wrong
        }
    }
    if (polled[1].revents != 0) {
        eventfd_t count = 0;
        ::eventfd_read(wakeUps_.Get(), &count);
    }
    return polled[0].revents != 0 && !EndIsAskedFor() && interrupted == 0;
}

void CConsoleWait::Wake() const noexcept {
    AddWakeUp(wakeUps_.Get());
}

bool CConsoleWait::EndIsAskedFor() {
    return endIsAskedFor != 0;
}

bool CConsoleWait::TakeInterrupt() {
    const bool was = interrupted != 0;
    interrupted = 0;
    return was;
}

void CConsoleWait::ForgetInterrupts() {
    interruptsInARow = 0;
}

bool CConsoleWait::TakeTerminalChange() {
    const bool changed = terminalHasChanged != 0;
    terminalHasChanged = 0;
    return changed;
}
