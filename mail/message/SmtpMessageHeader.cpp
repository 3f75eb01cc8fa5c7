// SPDX-License-Identifier: Apache-2.0
#include "mail/message/SmtpMessageHeader.h"

#include <cstdlib>

#include "mail/message/HeaderLines.h"
#include "mail/text/LumeString.h"
#include "platform/IgnoreCase.h"
#include "platform/diagnostics/Trace.h"

namespace {

/// Appends the pieces of `list` to `addresses`, trimmed and without the empty ones.
void AddAddresses(std::vector<std::string>& addresses, const char* what, const CLumeString& list, const char* delims,
                  const char* trimmed) {
    std::vector<std::string> pieces;
    list.Split(pieces, delims);
    for (std::string& piece : pieces) {
        CLumeString::TrimLeft(piece, trimmed);
        CLumeString::TrimRight(piece, trimmed);
        if (!piece.empty()) {
            EM_TRACE(3, "\nCSmtpMessageHeader  : Add mail recipient%s: \"%s\"", what, piece.c_str());
            addresses.push_back(std::move(piece));
        }
    }
}

}  // namespace

bool CSmtpMessageHeader::AddRecipients(const char* list) {
    if (list == nullptr) {
        return false;
    }
    AddAddresses(recipients_, "", list, " ,;\n", " \n\t\r");
    return true;
}

bool CSmtpMessageHeader::AddRecipientsCc(const char* list) {
    if (list == nullptr) {
        return false;
    }
    AddAddresses(recipientsCc_, " Cc", list, " ,;\n", " \n\t\r");
    return true;
}

void CSmtpMessageHeader::SetSender(std::string sender) {
    EM_TRACE(3, "\nCSmtpMessageHeader  : Add mail sender: \"%s\"", sender.c_str());
    sender_ = std::move(sender);
}

std::string CSmtpMessageHeader::GetMessageHeader() const {
    CHeaderLines lines("\r\n");
    const auto addText = [&lines](std::string_view name, const std::string& text) {
        if (!text.empty()) {
            lines.Add(name, text);
        }
    };
    const auto addList = [&lines](std::string_view name, const std::vector<std::string>& list) {
        if (!list.empty()) {  // its one entry may be empty, though
            lines.Add(name, CHeaderLines::Join(list));
        }
    };
    addText("From: ", sender_);
    addList("To: ", recipients_);
    addList("Cc: ", recipientsCc_);
    addList("Reply-To: ", replyTo_);
    addText("Subject: ", subject_);
    lines.AddImportance(importance_);
    for (const auto& [key, value] : extraHeaders_) {
        lines.Add(key, value);
    }
    return lines.Text();
}

void CSmtpMessageHeader::SetField(std::string_view name, const std::string& value) {
    using Header = CSmtpMessageHeader;
    static constexpr struct {
        std::string_view name;
        void (*set)(Header& header, const std::string& text);
    } kFields[] = {
        {"FROM", [](Header& header, const std::string& text) { header.SetSender(text); }},
        {"TO",
         [](Header& header, const std::string& text) { AddAddresses(header.recipients_, "", text, ",", kSpace); }},
        {"CC",
         [](Header& header, const std::string& text) { AddAddresses(header.recipientsCc_, " Cc", text, ",", kSpace); }},
        {"BCC", [](Header& header,
                   const std::string& text) { AddAddresses(header.recipientsBcc_, " Bcc", text, ",", kSpace); }},
        {"REPLY-TO", [](Header& header, const std::string& text) { header.AddReplyTo(text); }},
        {"SUBJECT", [](Header& header, const std::string& text) { header.SetSubject(text); }},
        {"X-Priority", [](Header& header, const std::string& text) { header.SetPriority(text); }},
        {"Importance", [](Header& header, const std::string& text) { header.SetImportanceWord(text); }},
    };
    for (const auto& field : kFields) {
        if (EqualIgnoringCase(field.name, name)) {
            field.set(*this, value);
            return;
        }
    }
}

void CSmtpMessageHeader::SetPriority(const std::string& value) {
    // Mail programs count from 1 (highest) to 5 (lowest). Rubbish reads as 0 and is thus urgent.
    const long priority = std::strtol(value.c_str(), nullptr, 10);
    importance_ = priority > 4 ? kLowImportance : priority > 2 ? kNormalImportance : kHighImportance;
}

void CSmtpMessageHeader::SetImportanceWord(const std::string& value) {
    static constexpr std::string_view kWords[] = {"Low", "Normal", "High"};
    for (std::int32_t importance = kLowImportance; importance <= kHighImportance; ++importance) {
        if (EqualIgnoringCase(kWords[importance], value)) {
            importance_ = importance;
        }
    }
}
