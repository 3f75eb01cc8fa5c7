// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The header of a mail to be sent. Accepts any text: no address is checked here. A value, owned by one thread.
class CSmtpMessageHeader {
public:
    /// Values of `Importance`; without importance the mail has no importance lines.
    static constexpr std::int32_t kNoImportance = -1;
    static constexpr std::int32_t kLowImportance = 0;
    static constexpr std::int32_t kNormalImportance = 1;
    static constexpr std::int32_t kHighImportance = 2;

    /// Adds To addresses: the pieces of `list` between blanks, commas, semicolons and line feeds, without the empty
    /// ones.
    /// @return false when `list` is null
    bool AddRecipients(const char* list);

    /// The same for Cc addresses.
    bool AddRecipientsCc(const char* list);

    /// Adds one Reply-To entry, which may itself be a list.
    void AddReplyTo(std::string addresses) { replyTo_.push_back(std::move(addresses)); }

    /// Sets the From value: an address, or a display name followed by "<", the address and ">".
    void SetSender(std::string sender);

    /// Sets the subject in plain text; it is encoded on sending.
    void SetSubject(std::string subject) { subject_ = std::move(subject); }
    void SetImportance(std::int32_t importance) { importance_ = importance; }

    /// Sets a further header line; `key` holds all that stands before the value, such as "X-Mailer: ".
    void SetExtraHeader(std::string key, std::string value) {
        extraHeaders_.insert_or_assign(std::move(key), std::move(value));
    }

    const std::string& Sender() const { return sender_; }
    const std::vector<std::string>& Recipients() const { return recipients_; }
    const std::vector<std::string>& RecipientsCc() const { return recipientsCc_; }
    const std::vector<std::string>& RecipientsBcc() const { return recipientsBcc_; }
    const std::vector<std::string>& ReplyTo() const { return replyTo_; }
    const std::string& Subject() const { return subject_; }
    std::int32_t Importance() const { return importance_; }

    /// The header lines, each ended by CR LF; Bcc addresses are left out.
    std::string GetMessageHeader() const;

protected:
    /// The white space around lines and values of a header.
    static constexpr const char* kSpace = " \t\n\v\f\r";

    /// Takes one header line of a mail; `name` in any case, unknown ones are ignored.
    void SetField(std::string_view name, const std::string& value);

private:
    void SetPriority(const std::string& value);
    void SetImportanceWord(const std::string& value);

    std::string sender_;
    std::vector<std::string> recipients_;
    std::vector<std::string> recipientsCc_;
    std::vector<std::string> recipientsBcc_;
    std::vector<std::string> replyTo_;
    std::string subject_;
    std::map<std::string, std::string> extraHeaders_;
    std::int32_t importance_ = kNoImportance;
};
