// SPDX-License-Identifier: Apache-2.0
#include "mail/smtp/Smtp.h"

#include "mail/smtp/CurlUse.h"
#include "mail/smtp/SMTPClient.h"
#include "mail/text/LumeString.h"
#include "platform/diagnostics/Trace.h"

namespace {

constexpr unsigned int kDumpLevel = 5;

std::string HexDump(const std::string& text) {
    constexpr std::size_t kBytesPerLine = 16;
    CLumeString dump;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i % kBytesPerLine == 0) {
            dump.AppendFormat(i == 0 ? "%04zX:" : "\n%04zX:", i);
        }
        dump.AppendFormat(" %02X", static_cast<unsigned char>(text[i]));
    }
    return dump;
}

const char* OrEmpty(const char* text) {
    return text != nullptr ? text : "";
}

}  // namespace

void CSmtp::Prepare() {
    CCurlUse::Prepare();
}

int CSmtp::SendMail(const std::string& sender, const CSmtpMessage& message, const MailServer& server) {
    if (IsTracingEnabled() && traceObjects.debugClient.DebugLevel() >= kDumpLevel) {
        EM_TRACE(kDumpLevel, "\nCSMTPClient                : Hex dump of SMTP message:\n%s",
                 HexDump(message.GetMessageHeader() + message.Text()).c_str());
    }
    return CSMTPClient(stopping_).SendMail(sender, message, server);
}

int CSmtp::SendMail(const char* sender, const CSmtpMessage& message, const char* server, unsigned short port,
                    const char* userName, const char* password, bool useTls) {
    return SendMail(OrEmpty(sender), message,
                    {.host = OrEmpty(server),
                     .port = port,
                     .logsIn = userName != nullptr,
                     .userName = OrEmpty(userName),
                     .password = OrEmpty(password),
                     .useTls = useTls});
}
