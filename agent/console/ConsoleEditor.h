#pragma once

#include <cstdio>
#include <histedit.h>
#include <memory>
#include <mutex>
#include <string>

#include "agent/console/ConsoleTerminal.h"

/// A terminal with line editing, history and completion, by libedit. What is printed while a line is being typed goes
/// above it: the thread that reads takes the line off the screen, prints, and puts it back.
class CConsoleEditor final : public CIConsoleTerminal {
public:
    /// Takes the user's key bindings from ~/.editrc.
    /// @throw CAgentError when the terminal cannot be edited on
    CConsoleEditor(CConsoleWait& wait, ConsoleCompletion complete);
    ~CConsoleEditor() override;
    CConsoleEditor(const CConsoleEditor&) = delete;
    CConsoleEditor& operator=(const CConsoleEditor&) = delete;
    CConsoleEditor(CConsoleEditor&&) = delete;
    CConsoleEditor& operator=(CConsoleEditor&&) = delete;

    /// The line goes into the history, unless it sets a password.
    std::optional<std::string> ReadLine() override;
    void Print(std::string_view text) override;

private:
    static CConsoleEditor& Of(EditLine* editor);
    static int OnRead(EditLine* editor, wchar_t* character) noexcept;
    static unsigned char OnTab(EditLine* editor, int key) noexcept;

    int ReadCharacter(wchar_t& character);
    unsigned char Complete();
    void ShowWaiting();
    void ShowAbove(std::string_view text) const;
    void TakeLineOff() const;
    void StartEditing();
    void StopEditing();
    static void Write(std::string_view text);

    CConsoleWait& wait_;
    const ConsoleCompletion complete_;
    const std::unique_ptr<History, void (*)(History*)> history_;
    const std::unique_ptr<EditLine, void (*)(EditLine*)> editor_;

    std::mutex lock_;  // guards all below
    bool editing_ = false;
    std::string waiting_;  // printed while a line is being typed
};
