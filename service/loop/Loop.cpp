// SPDX-License-Identifier: Apache-2.0
#include "service/loop/Loop.h"

#include <cerrno>
#include <ctime>
#include <exception>
#include <system_error>
#include <utility>

#include "service/loop/Journal.h"

namespace {

constexpr std::uint64_t kAccuracy = 10000;  // us: wake-ups of many checks may be joined

void Require(int result, const char* what) {
    if (result < 0 && result != -ESTALE) {  // that one: the loop has ended
        throw std::system_error(-result, std::generic_category(), what);
    }
}

int Call(void* work) {
    // The work may end its own source; the function must live on while it runs.
    const auto kept = *static_cast<std::function<void()>*>(work);
    try {
        kept();
    } catch (const std::exception& error) {  // C code has called
        Journal(3, error.what());
    }
    return 0;
}

int OnReady(sd_event_source* /*source*/, int /*descriptor*/, std::uint32_t /*events*/, void* work) {
    return Call(work);
}

int OnTime(sd_event_source* /*source*/, std::uint64_t /*time*/, void* work) {
    return Call(work);
}

int OnSignalled(sd_event_source* /*source*/, const struct signalfd_siginfo* /*info*/, void* work) {
    return Call(work);
}

}  // namespace

CLoop::CLoop() {
    Require(::sd_event_new(&event_), "cannot make an event loop");
}

CLoop::~CLoop() {
    ::sd_event_unref(event_);
}

CLoopSource CLoop::Watch(int descriptor, std::uint32_t events, std::function<void()> work) {
    CLoopSource made;
    made.work_ = std::make_unique<std::function<void()>>(std::move(work));
    sd_event_source* source = nullptr;
    Require(::sd_event_add_io(event_, &source, descriptor, events, OnReady, made.work_.get()), "cannot watch a file");
    made.source_.reset(source);
    return made;
}

void CLoop::ChangeEvents(CLoopSource& source, std::uint32_t events) {
    Require(::sd_event_source_set_io_events(source.source_.get(), events), "cannot watch a file");
}

CLoopSource CLoop::After(std::chrono::milliseconds delay, std::function<void()> work) {
    CLoopSource made;
    made.work_ = std::make_unique<std::function<void()>>(std::move(work));
    sd_event_source* source = nullptr;
    const auto microseconds = static_cast<std::uint64_t>(delay.count()) * 1000;
    Require(::sd_event_add_time_relative(event_, &source, CLOCK_MONOTONIC, microseconds, kAccuracy, OnTime,
                                         made.work_.get()),
            "cannot set a timer");
    made.source_.reset(source);
    return made;
}

CLoopSource CLoop::OnSignal(int signal, std::function<void()> work) {
    CLoopSource made;
    made.work_ = std::make_unique<std::function<void()>>(std::move(work));
    sd_event_source* source = nullptr;
    Require(::sd_event_add_signal(event_, &source, signal, OnSignalled, made.work_.get()), "cannot watch a signal");
    made.source_.reset(source);
    return made;
}

void CLoop::Run() {
    Require(::sd_event_loop(event_), "the event loop failed");
}
