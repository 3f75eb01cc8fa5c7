// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "agent/core/Json.h"
#include "agent/settings/UsageError.h"
#include "command/link/LocalModule.h"
#include "command/link/ServiceClient.h"
#include "command/terminal/ConsoleTerminal.h"

struct ContextOptions {
    LocalModuleOptions module;
    std::string installedModule;  ///< loaded when `module` names none; its path from the program's folder
    std::string socket;           ///< of the service; empty to ask none
    bool json = false;
    bool colour = false;  ///< on standard output
    bool isConsole = false;
    bool showsTraces = false;
};

/// What commands work on, and whom they talk to. One thread.
class CCommandContext {
public:
    CCommandContext(ContextOptions options, CIConsoleTerminal& terminal)
        : options_(std::move(options)), terminal_(terminal) {}

    const ContextOptions& Options() const { return options_; }
    CIConsoleTerminal& Terminal() { return terminal_; }

    /// The service when it answers, else the module in this process; found with the first call.
    CIModuleLink& Link();

    /// For waits without a watcher of their own.
    /// @return false when a signal has asked for the end
    static bool GoesOn(const Traces& traces);

    /// @return null behind a service
    CLocalModule* Local();

    /// @throw CAgentError when no service answers
    CServiceClient& Service();

    /// For what is known of events. A single command that has loaded the module itself knows of none, and would tell of
    /// a server that is well while its service is down.
    /// @throw CAgentError when that would be so, unless a module was asked for
    void RequireMemory();

    /// Stops the module, if it was loaded.
    /// @return false when a step failed
    bool Close();

    /// Asks the loop of the console to end.
    void Quit() { quits_ = true; }
    bool Quits() const { return quits_; }

    /// @return the status 0 to 3 in words, coloured where colours are wanted
    std::string StatusWord(std::uint32_t status) const;

private:
    ContextOptions options_;
    CIConsoleTerminal& terminal_;
    std::unique_ptr<CServiceClient> service_;
    std::unique_ptr<CLocalModule> local_;
    bool quits_ = false;
};
