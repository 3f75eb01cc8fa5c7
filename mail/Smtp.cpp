#include "mail/Smtp.h"

#include "mail/CurlUse.h"
#include "mail/LumeString.h"
#include "mail/SMTPClient.h"
#include "mail/SMTPClientTrace.h"

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

int CSmtp::SendMail(const char* sender, const CSmtpMessage& message, const char* server, unsigned short port,
                    const char* userName, const char* password, bool useTls) {
    if (IsTracingEnabled() && moduleObjects.debugClient.DebugLevel() >= kDumpLevel) {
        EM_TRACE(kDumpLevel, SMTP_CLIENT_TAG "Hex dump of SMTP message:\n%s",
                 HexDump(message.GetMessageHeader() + message.Text()).c_str());
    }
    using Authentication = CSMTPClient::SmtpAuthentication;
    return CSMTPClient(stopping_).SendMail(OrEmpty(sender), message, OrEmpty(server), port, OrEmpty(userName),
                                           OrEmpty(password),
                                           userName != nullptr ? Authentication::Login : Authentication::None, useTls);
}
