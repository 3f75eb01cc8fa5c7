// SPDX-License-Identifier: Apache-2.0
#include "agent/core/Transcript.h"

#include <algorithm>
#include <unistd.h>

#include "agent/core/Story.h"

namespace {

OwnedFile OpenTranscript(const std::optional<std::string>& path) {
    if (!path) {
        return {nullptr, std::fclose};
    }
    return *path == "-" ? OwnedFile(stdout, [](std::FILE*) { return 0; }) : OpenOutput(*path, false);
}

std::string JsonLine(const TranscriptEntry& entry, long long milliseconds) {
    std::string line = "{\"kind\":" + JsonString(entry.kind);
    const auto add = [&](const char* key, const std::string& json) {
        if (!json.empty()) {
            line += std::string(",\"") + key + "\":" + json;
        }
    };
    const auto addText = [&](const char* key, const std::string& text) {
        add(key, text.empty() ? text : JsonString(text));
    };
    addText("step", entry.step);
    add("message", entry.message);
    add("answer", entry.answer);
    add("result", entry.result);
    addText("note", entry.note);
    add("ms", std::to_string(milliseconds));
    return line + "}\n";
}

}  // namespace

CTranscript::CTranscript(const std::optional<std::string>& path, bool story, Listener listener, std::size_t mostHeld)
    : file_(OpenTranscript(path)),
      story_(story || (file_ != nullptr && ::isatty(::fileno(file_.get())) == 1)),
      listener_(std::move(listener)),
      mostHeld_(mostHeld) {}

void CTranscript::Write(const TranscriptEntry& entry) {
    const std::lock_guard guard(lock_);
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_)
                                  .count();  // under the lock: in order
    if (file_ != nullptr) {
        const std::string line = story_ ? TellStory(entry, milliseconds) : JsonLine(entry, milliseconds);
        if (std::fputs(line.c_str(), file_.get()) < 0 || std::fflush(file_.get()) != 0) {
            complete_ = false;
        }
    }
    if (listener_) {
        listener_(entry, TellStory(entry, milliseconds));
    }
    held_.push_back({.kind = entry.kind, .step = entry.step, .command = entry.command});
    if (held_.size() > mostHeld_) {
        held_.pop_front();
    }
    ++count_;
    changed_.notify_all();
}

std::optional<Command> CTranscript::Take(const TranscriptPattern& pattern) {
    const std::lock_guard guard(lock_);
    const auto found = std::ranges::find_if(held_, [&](const Held& held) {
        return (pattern.kind.empty() || pattern.kind == held.kind) &&
               (pattern.step.empty() || pattern.step == held.step) && Matches(pattern.command, held.command);
    });
    if (found == held_.end()) {
        return std::nullopt;
    }
    Command command = std::move(found->command);
    held_.erase(found);
    return command;
}

std::size_t CTranscript::Count() const {
    const std::lock_guard guard(lock_);
    return count_;
}

bool CTranscript::WaitForMore(std::size_t count, Clock::time_point deadline) const {
    std::unique_lock guard(lock_);
    return changed_.wait_until(guard, deadline, [&] { return count_ > count; });
}

bool CTranscript::IsComplete() const {
    const std::lock_guard guard(lock_);
    return complete_;
}
