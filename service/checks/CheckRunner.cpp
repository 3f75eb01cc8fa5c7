// SPDX-License-Identifier: Apache-2.0
#include "service/checks/CheckRunner.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <sys/epoll.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr std::size_t kKeptOutput = 4096;  // its first line is of interest
constexpr std::chrono::milliseconds kGrace{1000};
// Between systemd, the service and its module; a plugin may run what obeys them as well.
constexpr std::array<std::string_view, 4> kHidden = {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID",
                                                     "LUME_LOG_DEBUG_LEVEL"};

std::string Seconds(std::chrono::milliseconds time) {
    const std::string text = std::to_string(std::chrono::duration<double>(time).count());
    return text.substr(0, text.find_last_not_of('0') + (text.find_last_not_of('0') == text.find('.') ? 0 : 1)) + " s";
}

}  // namespace

CCheckRun::CCheckRun(CLoop& loop, const std::vector<std::string>& command, std::chrono::milliseconds timeout, Done done,
                     Done onHeld)
    : loop_(loop), timeout_(timeout), done_(std::move(done)), onHeld_(std::move(onHeld)) {
    if (const int error = process_.Start(command, kHidden); error != 0) {
        const std::string text = command.front() + " cannot be started: " + std::generic_category().message(error);
        timer_ = loop.After(std::chrono::milliseconds(0), [this, text] {
            Finish({.status = ComponentStatus::Warning, .text = text, .isAnswer = false});
        });
        return;
    }
    outputSource_ = loop.Watch(process_.GetOutput(), EPOLLIN, [this] { ReadOutput(); });
    endSource_ = loop.Watch(process_.GetPidFd(), EPOLLIN, [this] { OnEnd(); });
    timer_ = loop.After(timeout, [this] { OnTimeout(); });
}

void CCheckRun::ReadOutput() {
    std::array<char, 16384> piece{};
    const ssize_t count = ::read(process_.GetOutput(), piece.data(), piece.size());
    if (count > 0 && output_.size() < kKeptOutput) {
        output_.append(piece.data(), std::min(static_cast<std::size_t>(count), kKeptOutput - output_.size()));
    }
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
        outputSource_ = {};
    }
}

void CCheckRun::OnEnd() {
    ReadOutput();  // what came before the end
    endSource_ = {};
    const auto end = process_.Wait(std::chrono::milliseconds(0));
    CheckResult result{.status = ComponentStatus::Unknown,
                       .text = FirstLine(output_),
                       .took = std::chrono::steady_clock::now() - begun_};
    if (signals_ > 0) {
        result.isAnswer = false;
        result.text = "ended after " + Seconds(timeout_) + " without an answer";
    } else if (!end || end->how != CProcess::CEnd::EHow::Exited) {
        result.isAnswer = false;
        result.text = end && end->how == CProcess::CEnd::EHow::Signalled
                          ? "ended by signal " + std::to_string(end->value)
                          : "ended, but how is not known";
    } else {
        result.status = StatusOfExit(end->value);
        if (result.text.empty()) {
            result.text = (output_.empty() ? "no output" : "no text in the first line of its output") +
                          std::string(", exit status ") + std::to_string(end->value);
        }
    }
    Finish(result);
}

void CCheckRun::OnTimeout() {
    const int sent = signals_++;
    process_.Signal(sent == 0 ? SIGTERM : SIGKILL);
    const bool isHeld = sent > 1;
    timer_ = loop_.After(isHeld ? std::max(timeout_, kGrace) : kGrace, [this] { OnTimeout(); });
    if (isHeld) {
        const Done onHeld = onHeld_;  // the object may go while it is told
        onHeld({.status = ComponentStatus::Unknown,
                .text = "does not end, although it was killed after " + Seconds(timeout_) + " without an answer",
                .took = std::chrono::steady_clock::now() - begun_,
                .isAnswer = false});
    }
}

void CCheckRun::Finish(const CheckResult& result) {
    outputSource_ = {};
    timer_ = {};
    const Done done = done_;  // the object may go while it is told
    done(result);
}
