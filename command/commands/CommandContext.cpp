// SPDX-License-Identifier: Apache-2.0
#include "command/commands/CommandContext.h"

#include <array>

#include "agent/core/ModuleLibrary.h"

CIModuleLink& CCommandContext::Link() {
    if (service_ == nullptr && local_ == nullptr) {
        service_ = options_.socket.empty() ? nullptr : CServiceClient::Connect(options_.socket);
        if (service_ == nullptr) {
            std::string& library = options_.module.agent.library;
            library = library.empty() ? FindModule(options_.installedModule.c_str()) : library;
            local_ = std::make_unique<CLocalModule>(options_.module, [this](const std::string& sentence) {
                if (options_.isConsole) {
                    terminal_.Print(sentence);
                }
            });
        }
        Link().SetWaiting(GoesOn);
    }
    return service_ != nullptr ? static_cast<CIModuleLink&>(*service_) : *local_;
}

bool CCommandContext::GoesOn(const Traces& /*traces*/) {
    return !CConsoleWait::EndIsAskedFor() && !CConsoleWait::TakeInterrupt();
}

CLocalModule* CCommandContext::Local() {
    Link();
    return local_.get();
}

CServiceClient& CCommandContext::Service() {
    Link();
    if (service_ == nullptr) {
        throw CAgentError("no service answers at " + (options_.socket.empty() ? "any socket" : options_.socket) +
                          ", and this command needs one: systemctl status em-alertd");
    }
    return *service_;
}

void CCommandContext::RequireMemory() {
    if (!options_.isConsole && !options_.socket.empty()) {
        Service();
    }
}

bool CCommandContext::Close() {
    return local_ == nullptr || local_->Unload();
}

std::string CCommandContext::StatusWord(std::uint32_t status) const {
    struct Word {
        const char* word;
        const char* colour;
    };
    static constexpr auto kWords = std::to_array<Word>(
        {{"unknown", "\033[35m"}, {"OK", "\033[32m"}, {"warning", "\033[33m"}, {"error", "\033[31m"}});
    const Word& word = kWords.at(status < kWords.size() ? status : 0);
    return options_.colour ? std::string(word.colour) + word.word + "\033[0m" : word.word;
}
