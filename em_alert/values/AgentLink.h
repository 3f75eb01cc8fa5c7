// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "em_alert/frame/ExtensionModuleBase.h"
#include "mail/texts/AlertMailTexts.h"
#include "sip/Vocabulary.h"

/// The module's questions to the agent, and its announcements. Each question waits for its answer, 5 s at most as far
/// as the module asks for. Any thread, with no lock held that an answer might need.
class CAgentLink final : public CIAgentValues {
public:
    explicit CAgentLink(CExtensionModule& frame) : frame_(frame) {}

    bool RequestText(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId, std::string& text) override;
    bool RequestNumber(unsigned int opCode, unsigned int opCodeExt, unsigned int objectId,
                       unsigned int& number) override;
    bool RequestMessageTemplate(std::uint32_t errorCode, std::string& messageTemplate) override;

    /// Asks for a setting.
    /// @param answer  an empty message
    /// @return false when the answer has no data
    bool RequestSetting(ConfigurationValue id, SipJson& answer);

    /// @return 0 when the cabinet's system status cannot be had
    unsigned char RequestSystemStatus(unsigned int cabinet);

    /// Asks about the component that an event names.
    /// @return an empty text when the agent has none
    std::string RequestComponentText(OperationCode opCode, const SipJson& event);

    /// Fires an event of the module, with data 1.
    void Announce(OperationCode opCode);

    /// True from the agent's shutdown notification on.
    bool IsShuttingDown() const { return frame_.IsSwitchShutdown(); }

private:
    bool Ask(SipJson& message, unsigned int opCode, unsigned int opCodeExt, unsigned int objectId);

    CExtensionModule& frame_;
};

/// A status that no byte holds is unknown, as 0 is.
inline unsigned char ToStatusByte(unsigned int status) {
    return status > 0xFF ? 0 : static_cast<unsigned char>(status);
}

/// The number in the data of the message's current command; 0 when there is none.
unsigned int DataNumber(const SipJson& message);
