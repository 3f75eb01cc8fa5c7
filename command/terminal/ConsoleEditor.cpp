// SPDX-License-Identifier: Apache-2.0
#include "command/terminal/ConsoleEditor.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <fcntl.h>
#include <filesystem>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

#include "agent/core/Files.h"
#include "agent/core/Json.h"
#include "platform/Cancellation.h"

namespace {

constexpr const char* kPrompt = "> ";
constexpr int kPromptWidth = 2;
constexpr int kHistorySize = 500;
constexpr std::chrono::milliseconds kLongestWait{1000};

// True for a line that sets a password, also where a host carries it: user:password@host.
bool HoldsPassword(std::string_view line) {
    const std::size_t at = line.rfind('@');
    return line.find("password") != std::string_view::npos ||
           (line.find("host") != std::string_view::npos && at != std::string_view::npos && line.find(':') < at);
}

char* Prompt(EditLine* /*editor*/) {
    return const_cast<char*>(kPrompt);  // NOLINT(cppcoreguidelines-pro-type-const-cast): libedit only reads it
}

// Without a locale of several bytes a character libedit takes ASCII only.
void SetUpCharacters() {
    // NOLINTBEGIN(concurrency-mt-unsafe): there is no other thread yet
    std::setlocale(LC_CTYPE, "");
    if (MB_CUR_MAX == 1) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
    // NOLINTEND(concurrency-mt-unsafe)
}

std::string CommonStart(const std::vector<std::string>& words) {
    std::string start = words.front();
    for (const std::string& word : words) {
        const auto differs = std::ranges::mismatch(start, word).in1;
        start.erase(differs, start.end());
    }
    return start;
}

}  // namespace

CConsoleEditor::CConsoleEditor(CConsoleWait& wait, ConsoleCompletion complete, std::string historyFile)
    : wait_(wait),
      complete_(complete),
      historyFile_(std::move(historyFile)),
      history_((SetUpCharacters(), ::history_init()), ::history_end),
      editor_(::el_init("em-alert", stdin, stdout, stderr), ::el_end) {
    if (history_ == nullptr || editor_ == nullptr) {
        throw CAgentError("line editing does not work on this terminal");
    }
    HistEvent event{};
    ::history(history_.get(), &event, H_SETSIZE, kHistorySize);
    ::history(history_.get(), &event, H_SETUNIQUE, 1);
    ::history(history_.get(), &event, H_LOAD, historyFile_.c_str());
    EditLine* editor = editor_.get();
    ::el_set(editor, EL_CLIENTDATA, this);
    ::el_set(editor, EL_PROMPT, &Prompt);
    ::el_set(editor, EL_EDITOR, "emacs");
    ::el_set(editor, EL_HIST, &::history, history_.get());
    ::el_set(editor, EL_GETCFN, &CConsoleEditor::OnRead);
    ::el_set(editor, EL_ADDFN, "em-complete", "Completes a word", &CConsoleEditor::OnTab);
    ::el_set(editor, EL_BIND, "^I", "em-complete", nullptr);
    ::el_source(editor, nullptr);
}

CConsoleEditor::~CConsoleEditor() {
    try {
        if (!historyFile_.empty() && !entered_.empty()) {
            SaveHistory();
        }
    } catch (...) {  // a read-only home: the session was not worse for it
        LetCancellationPass();
    }
}

// What was entered here goes behind what the file holds by now: another console may have ended meanwhile.
void CConsoleEditor::SaveHistory() {
    // The file is replaced, so its folder is locked. While that is missing, nothing can be lost.
    const CUniqueFd folder(::open(std::filesystem::path(historyFile_).parent_path().c_str(), O_RDONLY | O_CLOEXEC));
    LockWithin(folder.Get(), kLongestWait);  // a history is worth no more
    HistEvent event{};
    ::history(history_.get(), &event, H_CLEAR);
    ::history(history_.get(), &event, H_LOAD, historyFile_.c_str());
    for (const std::string& line : entered_) {
        ::history(history_.get(), &event, H_ENTER, line.c_str());
    }
    // libedit empties a file before it writes, and does not see that a disk is full.
    const CUniqueFd memory(::memfd_create("history", MFD_CLOEXEC));
    const std::string copy = "/proc/self/fd/" + std::to_string(memory.Get());
    if (::history(history_.get(), &event, H_SAVE, copy.c_str()) >= 0) {
        ReplaceFile(historyFile_, ReadWholeFile(copy));  // with its directory, for its owner alone
    }
}

std::optional<std::string> CConsoleEditor::ReadLine() {
    CConsoleWait::ForgetInterrupts();  // an earlier one has ended a wait or a view
    ::el_resize(editor_.get());
    StartEditing();
    int count = 0;
    const char* read = ::el_gets(editor_.get(), &count);
    StopEditing();
    if (read == nullptr || count <= 0) {
        Write("\n");  // the prompt's line is left to the shell otherwise
        return std::nullopt;
    }
    std::string line(read, static_cast<std::size_t>(count));
    line.erase(line.find_last_not_of("\r\n") + 1);
    if (line.find_first_not_of(' ') != std::string::npos && !HoldsPassword(line)) {
        HistEvent event{};
        ::history(history_.get(), &event, H_ENTER, line.c_str());
        entered_.push_back(line);
    }
    return line;
}

std::optional<std::string> CConsoleEditor::ReadSecret(const std::string& prompt) {
    return ReadHiddenLine(wait_, prompt);
}

void CConsoleEditor::Print(std::string_view text) {
    const std::lock_guard guard(lock_);
    if (editing_) {
        waiting_ += text;
        wait_.Wake();
    } else {
        Write((std::exchange(progress_, false) ? kNoProgress : "") + std::string(text));
    }
}

void CConsoleEditor::ShowProgress(std::string_view text) {
    const std::lock_guard guard(lock_);
    Write((progress_ ? kNoProgress : "") + std::string(text));
    progress_ = !text.empty();
}

void CConsoleEditor::StartEditing() {
    const std::lock_guard guard(lock_);
    editing_ = true;
}

void CConsoleEditor::StopEditing() {
    const std::lock_guard guard(lock_);
    editing_ = false;
    Write(std::exchange(waiting_, {}));
}

void CConsoleEditor::ClearLine() {
    ::tcflush(STDIN_FILENO, TCIFLUSH);  // what was typed ahead, as a terminal's own Ctrl-C does
    const LineInfo* line = ::el_line(editor_.get());
    const auto all = static_cast<int>(line->lastchar - line->buffer);
    ::el_cursor(editor_.get(), all);  // which stops at the end
    ::el_deletestr(editor_.get(), all);
    Write("^C\n");
    ::el_set(editor_.get(), EL_REFRESH);
}

void CConsoleEditor::ShowWaiting() {
    std::string text;
    {
        const std::lock_guard guard(lock_);
        text = std::exchange(waiting_, {});
    }
    const bool changed = CConsoleWait::TakeTerminalChange();
    if (changed) {
        // The shell has had the terminal in between, and leaves it in its own mode.
        ::el_set(editor_.get(), EL_PREP_TERM, 0);
        ::el_set(editor_.get(), EL_PREP_TERM, 1);
        ::el_resize(editor_.get());
    }
    if (changed || !text.empty()) {
        ShowAbove(text);
    }
}

void CConsoleEditor::ShowAbove(std::string_view text) const {
    TakeLineOff();
    Write(text);
    ::el_set(editor_.get(), EL_REFRESH);
}

// The line may fill several rows of the screen, with the cursor in any of them.
void CConsoleEditor::TakeLineOff() const {
    winsize size{};
    const int columns = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
    const LineInfoW* line = ::el_wline(editor_.get());
    int width = kPromptWidth;
    for (const wchar_t* character = line->buffer; character < line->cursor; ++character) {
        width += std::max(0, ::wcwidth(*character));
    }
    std::string text = "\r";
    if (const int rows = width / columns; rows > 0) {
        text += "\033[" + std::to_string(rows) + "A";
    }
    Write(text + "\033[J");
}

void CConsoleEditor::Write(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

CConsoleEditor& CConsoleEditor::Of(EditLine* editor) {
    void* self = nullptr;
    ::el_get(editor, EL_CLIENTDATA, &self);
    return *static_cast<CConsoleEditor*>(self);
}

int CConsoleEditor::OnRead(EditLine* editor, wchar_t* character) noexcept {
    try {
        return Of(editor).ReadCharacter(*character);
    } catch (...) {
        return -1;
    }
}

// @return as libedit wants it: 1 for a character, 0 at the end of the input, -1 when it cannot be read
int CConsoleEditor::ReadCharacter(wchar_t& character) {
    std::mbstate_t state{};
    for (;;) {
        const bool hasInput = wait_.ForInput();
        ShowWaiting();
        if (CConsoleWait::EndIsAskedFor()) {
            return 0;
        }
        if (CConsoleWait::TakeInterrupt()) {
            ClearLine();
            continue;
        }
        if (!hasInput) {
            continue;
        }
        char byte = 0;
        const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
        if (count <= 0) {
            return static_cast<int>(count);
        }
        CConsoleWait::ForgetInterrupts();
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the state is our own
        const std::size_t length = std::mbrtowc(&character, &byte, 1, &state);
        if (length <= 1) {
            return 1;
        }
        if (length == static_cast<std::size_t>(-1)) {
            state = {};  // no character of this locale
        }
    }
}

unsigned char CConsoleEditor::OnTab(EditLine* editor, int /*key*/) noexcept {
    try {
        return Of(editor).Complete();
    } catch (...) {
        return CC_ERROR;
    }
}

unsigned char CConsoleEditor::Complete() {
    const LineInfo* line = ::el_line(editor_.get());
    const std::string_view text(line->buffer, static_cast<std::size_t>(line->cursor - line->buffer));
    const std::vector<std::string> words = complete_(text);
    if (words.empty()) {
        return CC_REFRESH_BEEP;
    }
    const std::size_t typed = text.size() - (text.find_last_of(' ') + 1);
    const std::string more = CommonStart(words).substr(typed) + (words.size() == 1 ? " " : "");
    if (!more.empty()) {
        return ::el_insertstr(editor_.get(), more.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }
    std::string list;
    for (const std::string& word : words) {
        list += (list.empty() ? "" : "  ") + word;
    }
    ShowAbove(list + "\n");
    return CC_NORM;
}
