// SPDX-License-Identifier: Apache-2.0
#include "command/mail/MailSetting.h"

#include "agent/core/Json.h"
#include "agent/core/Story.h"
#include "notification/NotificationConfig.h"
#include "sip/Vocabulary.h"

namespace {

// Why the settings file has no values though it is there; empty when it is fine, or missing.
std::string FaultOfFile(const CIModuleLink& link, const Traces& traces) {
    if (link.IsService()) {
        for (const std::string& trace : traces) {
            if (const auto at = trace.find("File \""); trace.find("not loaded: ") != std::string::npos) {
                return trace.substr(at != std::string::npos ? at : 0);
            }
        }
        return {};
    }
    // The module's prints may be switched off, but it runs as the same user.
    CNotificationConfig config;
    config.Load();
    const bool isFine = config.Status() == CNotificationConfig::LoadStatus::Loaded ||
                        config.Status() == CNotificationConfig::LoadStatus::Missing;
    return isFine ? std::string() : "the settings file " + config.Path() + " cannot be used: " + config.ErrorText();
}

}  // namespace

Command ReadMailSetting(CIModuleLink& link, std::uint32_t id, unsigned server) {
    Command request;
    request.oc = kReadConfigurationValue;
    request.oe = id;
    if (server != 0) {
        request.oi = server - 1;
    }
    const ModuleAnswer answer = link.Ask(request);
    if (answer.command.st == kDone) {
        return answer.command;
    }
    const std::string fault = FaultOfFile(link, answer.traces);
    if (!fault.empty()) {
        throw CAgentError(fault);
    }
    if (answer.command.st != kValueNotAvailable) {
        throw CAgentError("the module answered with " + StatusText(answer.command.st.value_or(kValueNotAvailable)));
    }
    return answer.command;
}

std::string MailSettingText(CIModuleLink& link, std::uint32_t id, unsigned server) {
    return AnswerText(ReadMailSetting(link, id, server)).value_or("");
}

std::optional<std::uint32_t> MailSettingNumber(CIModuleLink& link, std::uint32_t id, unsigned server) {
    return AnswerNumber(ReadMailSetting(link, id, server));
}

std::optional<std::string> AnswerText(const Command& answer) {
    if (answer.data.empty()) {
        return std::nullopt;
    }
    const CRapidJsonUtil::Document value = ParseJson(answer.data);
    return value.IsString() ? std::optional(std::string(value.GetString(), value.GetStringLength())) : std::nullopt;
}

std::optional<std::uint32_t> AnswerNumber(const Command& answer) {
    return answer.data.empty() ? std::nullopt : ReadNumber(ParseJson(answer.data));
}

std::string WhyNotWritten(const ModuleAnswer& answer) {
    std::string words;
    for (const std::string& trace : answer.traces) {
        const auto at = trace.find("ERROR! ");
        const auto file = trace.find("File \"");
        const auto begin = file != std::string::npos ? file : at != std::string::npos ? at + 7 : 0;
        words += (words.empty() ? "" : "; ") + trace.substr(begin);
    }
    return words.empty() ? "the module answered with " + StatusText(answer.command.st.value_or(kFailed)) : words;
}
