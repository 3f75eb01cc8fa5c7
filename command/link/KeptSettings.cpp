// SPDX-License-Identifier: Apache-2.0
#include "command/link/KeptSettings.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include "agent/core/AnswerTable.h"
#include "agent/core/Files.h"
#include "platform/files/UniqueFd.h"

namespace {

// A change takes a moment; whoever holds the lock for longer has been stopped.
constexpr std::chrono::milliseconds kLongestWait{5000};

// @return the lock, which is held until it is closed
CUniqueFd Lock(const std::string& file) {
    MakeParentDirectory(file);
    const std::string path = file + ".lock";  // beside the file, which is replaced
    CUniqueFd lock(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (const int error = lock ? LockWithin(lock.Get(), kLongestWait) : errno; error != 0) {
        throw CAgentError("cannot lock " + path + ": " +
                          (error == EWOULDBLOCK ? "another process holds it" : std::generic_category().message(error)));
    }
    return lock;
}

void Load(CAnswerTable& answers, const std::string& file) {
    if (::access(file.c_str(), F_OK) != 0) {
        return;
    }
    try {
        answers.Load(ReadWholeFile(file));
    } catch (const CAgentError& error) {
        throw CAgentError(file + ", " + error.what());
    }
}

std::string Line(const Command& answer) {
    std::string line;
    for (const auto& [key, value] : CommandMembers()) {
        if (answer.*value) {
            line += (line.empty() ? "{\"" : ",\"") + std::string(key) + "\":" + std::to_string(*(answer.*value));
        }
    }
    return line + (answer.data.empty() ? "" : ",\"DA\":" + answer.data) + "}";
}

}  // namespace

std::vector<Command> CKeptSettings::Read() const {
    CAnswerTable answers;
    Load(answers, file_);
    return answers.All();
}

void CKeptSettings::Change(const Command& answer) const {
    const CUniqueFd lock = Lock(file_);
    CAnswerTable answers;
    Load(answers, file_);
    answers.Set(answer);
    std::string lines;
    for (const Command& kept : answers.All()) {
        lines += (lines.empty() ? "[\n  " : ",\n  ") + Line(kept);
    }
    ReplaceFile(file_, lines + "\n]\n");
}
