// SPDX-License-Identifier: Apache-2.0
#include "command/mail/MailComposer.h"

#include "agent/core/Json.h"
#include "command/mail/MailSetting.h"
#include "mail/texts/AlertMailTexts.h"
#include "notification/NotificationConfig.h"
#include "platform/diagnostics/WithoutPassword.h"
#include "sip/Vocabulary.h"

namespace {

Command Question(std::uint32_t operation, std::uint32_t extension, std::uint32_t object) {
    Command question;
    question.oc = operation;
    question.oe = extension;
    question.oi = object;
    return question;
}

/// Answers the mail texts' questions with the agent's answers.
class CAgentValues final : public CIAgentValues {
public:
    explicit CAgentValues(CIModuleLink& link) : link_(link) {}

    bool RequestText(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId, std::string& text) override {
        const auto found = AnswerText(link_.AgentAnswer(Question(opCode, opCodeExt, objectId)));
        text = found.value_or(text);
        return found.has_value();
    }

    bool RequestNumber(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId,
                       unsigned int& number) override {
        const auto found = AnswerNumber(link_.AgentAnswer(Question(opCode, opCodeExt, objectId)));
        number = found.value_or(number);
        return found.has_value();
    }

    bool RequestMessageTemplate(std::uint32_t /*errorCode*/, std::string& messageTemplate) override {
        return RequestText(kReadUpdateMessage, 0, 0, messageTemplate);
    }

private:
    CIModuleLink& link_;
};

MailSettings ReadSettings(CIModuleLink& link, std::optional<std::uint16_t> language) {
    CAgentValues agent(link);
    MailSettings settings;
    settings.senderAddress = MailSettingText(link, kSender);
    settings.senderName = MailSettingText(link, kSenderDescription);
    settings.recipients = MailSettingText(link, kRecipients);
    settings.recipientsCc = MailSettingText(link, kRecipientsCc);
    agent.RequestText(kReadConfigurationValue, kMailAlertSubject, 0, settings.alertSubject);
    agent.RequestText(kReadConfigurationValue, kMailAlertMessage, 0, settings.alertMessage);
    agent.RequestText(kReadConfigurationValue, kUpdateStatusSubject, 0, settings.updateSubject);
    agent.RequestText(kReadConfigurationValue, kUpdateStatusMessage, 0, settings.updateMessage);
    unsigned int number = 0;
    if (agent.RequestNumber(kReadConfigurationValue, kMailAlertImportance, 0, number)) {
        settings.importance = static_cast<std::uint8_t>(number);
    }
    number = 0;
    agent.RequestNumber(kReadConfigurationValue, kMailLanguage, 0, number);
    settings.language = language.value_or(static_cast<std::uint16_t>(number));
    return settings;
}

/// The module also logs in with a type that it does not know, or that is missing; asked for it, it says "none" for all
/// of these. The file tells them apart, to those who may read it.
bool LogsIn(CIModuleLink& link, unsigned server) {
    using Config = CNotificationConfig;
    auto type = Config::AuthenticationType::None;
    if (Config config; config.Load() && config.GetSmtpServerAuthenticationType(type, static_cast<int>(server) - 1)) {
        return type != Config::AuthenticationType::None;
    }
    return MailSettingNumber(link, kServerAuthenticationType, server).value_or(0) != 0;
}

}  // namespace

std::string NumberedServer::Title() const {
    return WithoutPassword(server.host) + ":" + std::to_string(server.port);
}

std::vector<NumberedServer> ReadMailServers(CIModuleLink& link) {
    constexpr unsigned kServers = 2;
    constexpr unsigned short kSmtpPort = 25;
    constexpr unsigned short kSmtpsPort = 465;
    std::vector<NumberedServer> servers;
    for (unsigned number = 1; number <= kServers; ++number) {
        MailServer server;
        server.host = MailSettingText(link, kServerHost, number);
        if (server.host.empty()) {
            continue;
        }
        const unsigned short usual = server.host.starts_with("smtps://") ? kSmtpsPort : kSmtpPort;
        server.port = static_cast<unsigned short>(MailSettingNumber(link, kServerPort, number).value_or(usual));
        server.logsIn = LogsIn(link, number);
        server.userName = MailSettingText(link, kServerUserName, number);
        server.password = MailSettingText(link, kServerPassword, number);
        server.useTls = MailSettingNumber(link, kServerSmtps, number).value_or(0) != 0;
        servers.push_back({.number = number, .server = std::move(server)});
    }
    return servers;
}

CSmtpMessage ComposeMail(CIModuleLink& link, bool update, std::optional<std::uint16_t> language) {
    constexpr unsigned char kCritical = 3;
    CAgentValues agent(link);
    CAlertMailTexts texts(ReadSettings(link, language), agent);
    CSmtpMessage mail;
    if (update) {
        texts.CreateUpdateStatusMail(mail, CLogMsgArguments());
    } else {
        texts.CreateSystemStatusMail(mail, kCritical, kCritical, "Test", "Test Component");
    }
    return mail;
}
