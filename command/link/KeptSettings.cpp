// SPDX-License-Identifier: Apache-2.0
#include "command/link/KeptSettings.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/file.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "agent/core/AnswerTable.h"
#include "agent/core/Files.h"
#include "platform/files/UniqueFd.h"

namespace {

using std::chrono::milliseconds;

// A change takes a moment; whoever holds the lock for longer has been stopped.
constexpr milliseconds kLongestWait{5000};
constexpr milliseconds kInterval{20};

// @return the lock, which is held until it is closed
CUniqueFd Lock(const std::string& file) {
    MakeParentDirectory(file);
    const std::string path = file + ".lock";  // beside the file, which is replaced
    CUniqueFd lock(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    int error = lock ? EWOULDBLOCK : errno;
    for (milliseconds waited{0}; error == EWOULDBLOCK && waited < kLongestWait; waited += kInterval) {
        error = ::flock(lock.Get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
        if (error != 0) {
            std::this_thread::sleep_for(kInterval);
        }
    }
    if (error != 0) {
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
