// SPDX-License-Identifier: Apache-2.0
#include "em_alert/values/NotificationValues.h"

#include <algorithm>

#include "platform/diagnostics/Trace.h"
#include "platform/diagnostics/WithoutPassword.h"
#include "sip/SipJson.h"
#include "sip/Vocabulary.h"

namespace {

constexpr char kListSeparators[] = " ,;";

using Config = CNotificationConfig;
using AuthenticationType = Config::AuthenticationType;

bool AnswerText(SipJson& reply, bool found, const std::string& text) {
    if (found) {
        reply.SetReplyDataString(text.c_str(), kDone);
    }
    return found;
}

bool AnswerNumber(SipJson& reply, bool found, unsigned int number) {
    if (found) {
        reply.SetDataUIntValue(number, kDone);
    }
    return found;
}

bool TakeText(const SipJson& request, std::string& text) {
    return request.GetCmdDataString(request.GetCmdIndex(), text, SipJson::kNoLimit);
}

bool TakeNumber(const SipJson& request, unsigned int& number) {
    return request.GetCmdUIntData(request.GetCmdIndex(), number);
}

template <bool (Config::*get)(std::string&)>
bool ReadText(Config& config, int /*server*/, SipJson& reply) {
    std::string text;
    const bool found = (config.*get)(text);
    return AnswerText(reply, found, text);
}

template <bool (Config::*get)(std::string&, int)>
bool ReadServerText(Config& config, int server, SipJson& reply) {
    std::string text;
    const bool found = (config.*get)(text, server);
    return AnswerText(reply, found, text);
}

template <bool (Config::*get)(std::string&, const char*)>
bool ReadList(Config& config, int /*server*/, SipJson& reply) {
    std::string list;
    const bool found = (config.*get)(list, ";");
    return AnswerText(reply, found, list);
}

template <bool (Config::*set)(const std::string&)>
bool WriteText(Config& config, int /*server*/, const SipJson& request) {
    std::string text;
    return TakeText(request, text) && (config.*set)(text);
}

template <bool (Config::*set)(const std::string&, const char*)>
bool WriteList(Config& config, int /*server*/, const SipJson& request) {
    std::string list;
    return TakeText(request, list) && (config.*set)(list, kListSeparators);
}

bool ReadServerCount(Config& config, int /*server*/, SipJson& reply) {
    int count = 0;
    for (std::string host; config.GetSmtpServer(host, count);) {
        ++count;
    }
    return AnswerNumber(reply, true, static_cast<unsigned int>(count));
}

bool WriteHost(Config& config, int server, const SipJson& request) {
    std::string host;
    if (!TakeText(request, host)) {
        return false;
    }
    EM_TRACE(3, "\nEM_ALERT            : SMTP server [%d]: Host name \"%s\"", server, WithoutPassword(host).c_str());
    return config.SetSmtpServer(host, server);
}

bool ReadPort(Config& config, int server, SipJson& reply) {
    unsigned short port{};
    const bool found = config.GetSmtpServerPort(port, server);
    return AnswerNumber(reply, found, port);
}

bool WritePort(Config& config, int server, const SipJson& request) {
    unsigned int port{};
    if (!TakeNumber(request, port) || port > 0xFFFF) {
        return false;
    }
    EM_TRACE(3, "\nEM_ALERT            : SMTP server [%d]: Port \"%d\"", server, static_cast<int>(port));
    return config.SetSmtpServerPort(static_cast<unsigned short>(port), server);
}

bool ReadAuthenticationType(Config& config, int server, SipJson& reply) {
    auto type = AuthenticationType::None;
    const bool found = config.GetSmtpServerAuthenticationType(type, server);
    const bool isKnown = type == AuthenticationType::Smtp || type == AuthenticationType::Pop3;
    return AnswerNumber(reply, found, isKnown ? static_cast<unsigned int>(type) : 0);
}

bool WriteAuthenticationType(Config& config, int server, const SipJson& request) {
    unsigned int number{};
    if (!TakeNumber(request, number)) {
        return false;
    }
    // POP3 before SMTP can be read but not set.
    const auto type = number == 1 ? AuthenticationType::Smtp : AuthenticationType::None;
    EM_TRACE(3, "\nEM_ALERT            : SMTP server [%d]: Authentication type \"%d\"", server, static_cast<int>(type));
    return config.SetSmtpServerAuthenticationType(type, server);
}

bool WriteUserName(Config& config, int server, const SipJson& request) {
    std::string name;
    if (!TakeText(request, name)) {
        return false;
    }
    EM_TRACE(3, "\nEM_ALERT            : SMTP server [%d]: User Name %s", server, name.c_str());
    return config.SetSmtpServerAuthenticationUserName(name, server);
}

bool WritePassword(Config& config, int server, const SipJson& request) {
    std::string password;
    return TakeText(request, password) &&
           config.SetSmtpServerAuthenticationUserPassword(password, server, Config::PasswordEncryptionType::Enciphered);
}

bool ReadSmtps(Config& config, int server, SipJson& reply) {
    bool on{};
    const bool found = config.GetSmtpServerSMTPS(on, server);
    if (found) {
        reply.SetDataByte(on ? 1 : 0, kDone);
    }
    return found;
}

bool WriteSmtps(Config& config, int server, const SipJson& request) {
    unsigned int on{};
    return TakeNumber(request, on) && config.SetSmtpServerSMTPS((on & 0xFF) != 0, server);  // a byte
}

constexpr NotificationValue kValues[] = {
    {kSender, ReadText<&Config::GetSender>, WriteText<&Config::SetSender>},
    {kSenderDescription, ReadText<&Config::GetSenderDescription>, WriteText<&Config::SetSenderDescription>},
    {kRecipients, ReadList<&Config::GetRecipients>, WriteList<&Config::SetRecipients>},
    {kRecipientsCc, ReadList<&Config::GetRecipientsCc>, WriteList<&Config::SetRecipientsCc>},
    {kServerCount, ReadServerCount, nullptr},
    {kServerHost, ReadServerText<&Config::GetSmtpServer>, WriteHost},
    {kServerPort, ReadPort, WritePort},
    {kServerAuthenticationType, ReadAuthenticationType, WriteAuthenticationType},
    {kServerUserName, ReadServerText<&Config::GetSmtpServerAuthenticationUserName>, WriteUserName},
    {kServerPassword, ReadServerText<&Config::GetSmtpServerAuthenticationUserPassword>, WritePassword},
    {kServerSmtps, ReadSmtps, WriteSmtps},
};

}  // namespace

const NotificationValue* FindNotificationValue(unsigned int id) {
    const auto* row = std::ranges::find(kValues, id, &NotificationValue::id);
    return row == std::end(kValues) ? nullptr : row;
}
