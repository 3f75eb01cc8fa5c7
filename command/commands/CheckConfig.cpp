// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <netdb.h>
#include <optional>
#include <sys/stat.h>
#include <system_error>

#include <curl/curl.h>

#include "agent/core/Files.h"
#include "command/commands/CommandContext.h"
#include "command/commands/CommandTable.h"
#include "command/commands/MailRound.h"
#include "command/mail/MailSetting.h"
#include "notification/FileLock.h"
#include "notification/NotificationConfig.h"
#include "service/config/Printable.h"
#include "service/config/ServiceConfig.h"
#include "sip/Vocabulary.h"

namespace {

enum class State { Ok, Note, Wrong };

struct Finding {
    const char* subject;
    State state;
    std::string words;
};

using Findings = std::vector<Finding>;

std::string SystemWords(int error) {
    return std::generic_category().message(error);
}

void CheckModule(CCommandContext& context, Findings& findings) {
    if (CLocalModule* module = context.Local()) {
        module->Load();
        findings.push_back({"module", State::Ok, context.Options().module.agent.library});
    } else {
        findings.push_back({"service", State::Ok, "answers at " + context.Options().socket});
    }
}

// False when no setting can be read, so that further looks would only tell the same again.
bool CheckSettingsFile(CCommandContext& context, Findings& findings) {
    CNotificationConfig config;
    config.Load();
    const std::string& path = config.Path();
    struct stat status {};
    if (config.Status() == CNotificationConfig::LoadStatus::Missing) {
        findings.push_back({"settings file", State::Note, path + " does not exist; the first \"set\" makes it"});
    } else if (config.Status() != CNotificationConfig::LoadStatus::Loaded) {
        const bool mayBeFine = context.Link().IsService() && ::access(path.c_str(), R_OK) != 0;
        findings.push_back({"settings file", mayBeFine ? State::Note : State::Wrong, path + ": " + config.ErrorText()});
        return mayBeFine;
    } else if (::stat(path.c_str(), &status) == 0 && (status.st_mode & (S_IRGRP | S_IROTH)) != 0) {
        findings.push_back(
            {"settings file", State::Wrong, path + " holds passwords and may be read by others: chmod 600"});
    } else if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        findings.push_back({"settings file", State::Wrong, path + " may be changed by others: chmod 600"});
    } else {
        findings.push_back({"settings file", State::Ok, path});
    }
    return true;
}

// The directory is left unmade: a check changes nothing.
void CheckLock(Findings& findings) {
    std::error_code ignored;
    const std::string path = CNotificationConfig().Path();
    if (!std::filesystem::exists(CNotificationConfig::kDirectory, ignored)) {
        return;
    }
    CFileLock lock;
    if (lock.Lock(path.c_str(), "em-alert check-config ", CNotificationConfig::kLockTimeoutMs)) {
        lock.UnlockFile(path.c_str());
        findings.push_back({"lock", State::Ok, path + ".lock can be taken"});
        return;
    }
    const std::string& holder = lock.HolderText();
    findings.push_back({"lock", State::Wrong,
                        path + ".lock " +
                            (holder.empty() ? "cannot be taken: " + SystemWords(static_cast<int>(lock.LastError()))
                                            : "is held by " + holder)});
}

void CheckTraces(Findings& findings) {
    const std::string silence = WhyTracesAreSilent();
    findings.push_back({"traces", silence.empty() ? State::Ok : State::Note,
                        silence.empty() ? "no file keeps the module from printing" : silence});
}

void CheckCertificates(bool isService, Findings& findings) {
    const char* store = ::curl_version_info(CURLVERSION_NOW)->cainfo;
    if (store == nullptr) {
        findings.push_back({"certificates", State::Note, "libcurl names no file of authorities"});
        return;
    }
    constexpr const char* kRemedy = ", so no TLS server is trusted; the package ca-certificates makes it";
    try {
        const std::string text = ReadWholeFile(store);
        const bool holdsAny = text.find("CERTIFICATE-----") != std::string::npos;
        findings.push_back({"certificates", holdsAny ? State::Ok : State::Wrong,
                            std::string(store) + (holdsAny ? "" : " holds no certificate" + std::string(kRemedy))});
    } catch (const CAgentError& error) {
        // Another user's service may have to do with another answer.
        const bool mayBeFine = isService && ::access(store, F_OK) == 0;
        findings.push_back({"certificates", mayBeFine ? State::Note : State::Wrong,
                            error.what() + std::string(mayBeFine ? "" : kRemedy)});
    }
}

Finding CheckSender(const std::string& sender, const std::string& name) {
    if (sender.empty()) {
        return {"sender", State::Wrong, "not set: em-alert set sender ADDRESS"};
    }
    const bool hasName = sender.find('<') != std::string::npos;
    if (!hasName && name.empty()) {
        // The module ends the line "From:" nowhere then, and the next header becomes part of it.
        return {"sender", State::Wrong, sender + " has no name, so mails are malformed: em-alert set sender-name NAME"};
    }
    if (hasName && !name.empty()) {
        return {"sender", State::Wrong,
                sender + " has two names, so mails are malformed: em-alert set sender-name \"\""};
    }
    return {"sender", State::Ok, sender};
}

void CheckAddresses(CIModuleLink& link, Findings& findings) {
    const std::string sender = MailSettingText(link, kSender);
    findings.push_back(CheckSender(sender, MailSettingText(link, kSenderDescription)));
    std::string recipients = MailSettingText(link, kRecipients);
    const std::string others = MailSettingText(link, kRecipientsCc);
    recipients += (recipients.empty() || others.empty() ? "" : ";") + others;
    findings.push_back({"recipients", recipients.empty() ? State::Wrong : State::Ok,
                        recipients.empty() ? "not set: em-alert set recipients ADDRESS" : recipients});
}

void CheckMail(bool areMailed, const std::string& remedy, Findings& findings) {
    findings.push_back({"mail", areMailed ? State::Ok : State::Note,
                        areMailed ? "alerts are mailed" : "alerts are not mailed: " + remedy});
}

void CheckServer(const NumberedServer& server, Findings& findings) {
    std::string name = server.server.host;
    for (const std::string_view scheme : {"smtp://", "smtps://"}) {
        name.erase(0, name.starts_with(scheme) ? scheme.size() : 0);
    }
    name.erase(0, name.rfind('@') + 1);
    if (name.starts_with('[') && name.ends_with(']')) {
        name = name.substr(1, name.size() - 2);
    }
    addrinfo* list = nullptr;
    const int error = ::getaddrinfo(name.c_str(), nullptr, nullptr, &list);
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(list, [](addrinfo* found) {
        if (found != nullptr) {
            ::freeaddrinfo(found);
        }
    });
    const char* subject = server.number == 1 ? "server 1" : "server 2";
    findings.push_back(
        {subject, error == 0 ? State::Ok : State::Wrong,
         server.Title() + (error == 0 ? ": the name is known"
                                      : std::string(": the look-up of the name failed: ") +
                                            (error == EAI_SYSTEM ? SystemWords(errno) : ::gai_strerror(error)))});
}

/// @return whether it has alerts mailed; nothing when it is wrong
std::optional<bool> CheckServiceConfig(const std::string& path, Findings& findings) {
    ServiceConfig config;
    std::vector<ConfigMistake> mistakes;
    if (!ReadServiceConfig(path, config, mistakes)) {
        for (const ConfigMistake& mistake : mistakes) {
            findings.push_back({"em-alertd", State::Wrong, MistakeText(path, mistake)});
        }
        return std::nullopt;
    }
    findings.push_back(
        {"em-alertd", config.checks.empty() ? State::Note : State::Ok, path + ": " + ChecksText(config)});
    const auto mail = std::ranges::find(config.alerts, std::uint32_t{kMailForStatusAlert}, &AlertSettingValue::id);
    return mail != config.alerts.end() && mail->data == "1";
}

// A part that fails as a whole is a finding; the others are looked at all the same.
template <typename Check>
void Try(const char* subject, Findings& findings, Check check) {
    try {
        check();
    } catch (const CAgentError& error) {
        findings.push_back({subject, State::Wrong, error.what()});
    }
}

// Nobody has to have a service. One that runs knows what was set at run time, which goes before its file.
void CheckServiceAndMail(CCommandContext& context, const CommandArguments& arguments, bool hasModule,
                         Findings& findings) {
    const bool isNamed = !arguments.words.empty();
    const std::string path = isNamed ? arguments.words[0] : kServiceConfigFile;
    std::error_code ignored;
    const bool isThere = isNamed || std::filesystem::exists(path, ignored);
    Try("service", findings, [&] {
        if (hasModule && isThere && !isNamed && !context.Options().socket.empty() && !context.Link().IsService()) {
            findings.push_back({"service", State::Note,
                                "none answers at " + context.Options().socket + ": systemctl status em-alertd"});
        }
    });
    const std::optional<bool> isMailed = isThere ? CheckServiceConfig(path, findings) : std::nullopt;
    Try("mail", findings, [&] {
        if (hasModule && !isNamed && (!isThere || context.Link().IsService())) {
            const Command answer =
                context.Link().AgentAnswer(MakeCommand(kReadConfigurationValue, kMailForStatusAlert));
            CheckMail(AnswerNumber(answer).value_or(0) == 1, "em-alert setting mail on", findings);
        } else if (isMailed) {
            CheckMail(*isMailed, "mail = true in [alerts]", findings);
        }
    });
}

Outcome ToOutcome(const Findings& findings) {
    static constexpr std::array<const char*, 3> kMarks = {"ok", "note", "WRONG"};
    static constexpr std::array<const char*, 3> kStates = {"ok", "note", "wrong"};
    Outcome outcome;
    std::size_t wrong = 0;
    for (const auto& [subject, state, words] : findings) {
        const auto index = static_cast<std::size_t>(state);
        wrong += state == State::Wrong ? 1 : 0;
        std::string line = kMarks.at(index);
        line.resize(7, ' ');
        line += subject;
        line.resize(22, ' ');
        outcome.text += line + Printable(words, SIZE_MAX) + "\n";
        outcome.json += (outcome.json.empty() ? "[{\"subject\":" : ",{\"subject\":") + JsonString(subject) +
                        ",\"state\":" + JsonString(kStates.at(index)) + ",\"text\":" + JsonString(words) + "}";
    }
    outcome.json += "]";
    outcome.failure = wrong == 0 ? "" : wrong == 1 ? "one thing is wrong" : std::to_string(wrong) + " things are wrong";
    return outcome;
}

}  // namespace

Outcome RunCheckConfig(CCommandContext& context, const CommandArguments& arguments) {
    Findings findings;
    Try("module", findings, [&] { CheckModule(context, findings); });
    const bool hasModule = findings.front().state == State::Ok;
    bool hasSettings = hasModule;
    Try("settings file", findings, [&] { hasSettings = CheckSettingsFile(context, findings) && hasModule; });
    CheckLock(findings);
    CheckTraces(findings);
    CheckCertificates(hasModule && context.Link().IsService(), findings);
    if (hasSettings) {
        Try("addresses", findings, [&] { CheckAddresses(context.Link(), findings); });
        Try("servers", findings, [&] {
            const std::vector<NumberedServer> servers = ReadMailServers(context.Link());
            for (const NumberedServer& server : servers) {
                CheckServer(server, findings);
            }
            if (servers.empty()) {
                findings.push_back({"servers", State::Wrong, "none is set up: em-alert set host 1 NAME"});
            }
        });
    }
    CheckServiceAndMail(context, arguments, hasModule, findings);
    return ToOutcome(findings);
}
