// SPDX-License-Identifier: Apache-2.0
#include "mail/message/SmtpMessage.h"

#include <algorithm>

#include "mail/text/LumeString.h"

std::string ToCrLf(std::string_view text) {
    std::string converted;
    char previous = '\0';
    for (const char c : text) {
        if (c == '\n' && previous != '\r') {
            converted += '\r';
        }
        converted += c;
        previous = c;
    }
    return converted;
}

std::string CSmtpMessage::Trim(std::string_view text) {
    std::string trimmed(text);
    CLumeString::TrimLeft(trimmed, kSpace);
    CLumeString::TrimRight(trimmed, kSpace);
    return trimmed;
}

bool CSmtpMessage::SetSmtpMessage(const char* text) {
    if (text == nullptr) {
        return false;
    }
    *this = CSmtpMessage();
    for (std::string_view rest = text; !rest.empty();) {
        const auto end = std::min(rest.find('\n'), rest.size());
        const std::string line = Trim(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (line.empty()) {
            SetText(rest);
            break;
        }
        SetHeaderLine(line);
    }
    return true;
}

void CSmtpMessage::SetHeaderLine(std::string_view line) {
    line.remove_prefix(std::min(line.find_first_not_of(':'), line.size()));
    const auto colon = line.find(':');
    if (colon != std::string_view::npos) {
        SetField(line.substr(0, colon), Trim(line.substr(colon + 1)));
    }
}
