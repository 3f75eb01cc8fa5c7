// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <utility>

#include "mail/message/SmtpMessage.h"
#include "mail/text/LumeString.h"
#include "mail/texts/LogMsgArguments.h"
#include "mail/texts/MailSettings.h"

/// The values that only the agent knows. Each call is a request that may take seconds; called on the thread that
/// composes the mail.
class CIAgentValues {
public:
    /// Asks for a text.
    /// @return false, leaving `text` alone, when the agent has none
    virtual bool RequestText(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId, std::string& text) = 0;

    /// Asks for a number.
    /// @return false, leaving `number` alone, when the agent has none
    virtual bool RequestNumber(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId,
                               unsigned int& number) = 0;

    /// Asks for the message template of an update manager's error code.
    virtual bool RequestMessageTemplate(std::uint32_t errorCode, std::string& messageTemplate) = 0;

protected:
    ~CIAgentValues() = default;
};

/// Turns the configured templates into finished mails: replaces the variables, formats the update manager's message,
/// sets sender, recipients and importance. One object serves one mail; it works on the settings it was given.
///
/// A variable's value is fetched only when the text holds the variable. Variables are found in any case and handled in
/// the order of their table; a value is never searched for its own variable, but one that holds a later variable is
/// expanded in its turn.
class CAlertMailTexts {
public:
    CAlertMailTexts(MailSettings settings, CIAgentValues& agent) : settings_(std::move(settings)), agent_(agent) {}

    /// Replaces the variables that any text may hold.
    void FormatText(CLumeString& text);

    /// Replaces the variables of a status mail, then those of any text.
    void FormatSystemStatusText(CLumeString& text, unsigned char systemStatus, unsigned char componentStatus,
                                const std::string& componentName, const std::string& componentDesignation);

    /// Replaces the update message, then the variables of any text. An incomplete record, or an error code for which
    /// the agent has no template, leaves the update message's variable in the text.
    void FormatUpdateStatusText(CLumeString& text, const CLogMsgArguments& arguments);

    void CreateSystemStatusMail(CSmtpMessage& mail, unsigned char systemStatus, unsigned char componentStatus,
                                const std::string& componentName, const std::string& componentDesignation);
    void CreateUpdateStatusMail(CSmtpMessage& mail, const CLogMsgArguments& arguments);

    /// The status as a word, in the mail's language where the agent has a translation.
    std::string SystemStatusWord(unsigned char status);
    std::string ComponentStatusWord(unsigned char status);

    /// True when `text` holds `name` in any case; false for a null or empty name.
    static bool ContainsVariableName(const CLumeString& text, const char* name);

private:
    struct Topic;
    struct Variable;
    static const Variable kVariables[];

    void Replace(CLumeString& text, const Topic& topic);

    // Sources of the values; false leaves the variable in the text.
    bool TopicSystemStatus(const Topic& topic, std::string& value);
    bool ComponentName(const Topic& topic, std::string& value);
    bool ComponentDesignation(const Topic& topic, std::string& value);
    bool ComponentStatus(const Topic& topic, std::string& value);
    bool UpdateMessage(const Topic& topic, std::string& value);
    bool Date(const Topic& topic, std::string& value);
    bool Time(const Topic& topic, std::string& value);
    bool HostName(const Topic& topic, std::string& value);
    bool HostNameFQ(const Topic& topic, std::string& value);
    bool HostIPAddress(const Topic& topic, std::string& value);
    bool HostIPv4Address(const Topic& topic, std::string& value);
    bool HostIPv6Address(const Topic& topic, std::string& value);
    bool SystemModel(const Topic& topic, std::string& value);
    bool SystemSerialNr(const Topic& topic, std::string& value);
    bool SystemAssetID(const Topic& topic, std::string& value);
    bool SystemStatus(const Topic& topic, std::string& value);
    bool ConsoleTime(const Topic& topic, std::string& value);

    bool RequestInLanguage(unsigned int opCodeExt, std::string& text);
    std::string LocalDateOrTime(const char* format, void (*japanForm)(std::string&, std::time_t));
    void SetAddresses(CSmtpMessage& mail) const;
    void SetImportance(CSmtpMessage& mail, unsigned char componentStatus) const;

    const MailSettings settings_;
    CIAgentValues& agent_;
};
