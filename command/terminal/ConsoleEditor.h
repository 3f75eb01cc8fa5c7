// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <histedit.h>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "command/terminal/ConsoleTerminal.h"

/// A terminal with line editing, history and completion, by libedit. What is printed while a line is being typed goes
/// above it: the thread that reads takes the line off the screen, prints, and puts it back.
class CConsoleEditor final : public CIConsoleTerminal {
public:
    /// Takes the user's key bindings from ~/.editrc.
    /// @param historyFile  where the history is kept, and found; empty for nowhere
    /// @throw CAgentError when the terminal cannot be edited on
    CConsoleEditor(CConsoleWait& wait, ConsoleCompletion complete, std::string historyFile);
    /// Adds what was entered to the history that is kept, if that can be.
    ~CConsoleEditor() override;
    CConsoleEditor(const CConsoleEditor&) = delete;
    CConsoleEditor& operator=(const CConsoleEditor&) = delete;
    CConsoleEditor(CConsoleEditor&&) = delete;
    CConsoleEditor& operator=(CConsoleEditor&&) = delete;

    /// The line goes into the history, unless it sets a password.
    std::optional<std::string> ReadLine() override;
    std::optional<std::string> ReadSecret(const std::string& prompt) override;
    void Print(std::string_view text) override;
    void ShowProgress(std::string_view text) override;

private:
    static CConsoleEditor& Of(EditLine* editor);
    static int OnRead(EditLine* editor, wchar_t* character) noexcept;
    static unsigned char OnTab(EditLine* editor, int key) noexcept;

    void SaveHistory();
    int ReadCharacter(wchar_t& character);
    unsigned char Complete();
    void ClearLine();
    void ShowWaiting();
    void ShowAbove(std::string_view text) const;
    void TakeLineOff() const;
    void StartEditing();
    void StopEditing();
    static void Write(std::string_view text);

    CConsoleWait& wait_;
    const ConsoleCompletion complete_;
    const std::string historyFile_;
    const std::unique_ptr<History, void (*)(History*)> history_;
    const std::unique_ptr<EditLine, void (*)(EditLine*)> editor_;
    std::vector<std::string> entered_;

    std::mutex lock_;  // guards all below
    bool editing_ = false;
    bool progress_ = false;  // stands in the cursor's line
    std::string waiting_;    // printed while a line is being typed
};
