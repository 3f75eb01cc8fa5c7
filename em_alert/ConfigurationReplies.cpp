#include <algorithm>
#include <utility>

#include "em_alert/AlertExtensionModule.h"
#include "em_alert/SettingTrace.h"
#include "platform/Cancellation.h"

namespace {

constexpr std::size_t kLongestRefusedSequence = 8;  // bytes

/// The bytes of a sequence. Texts, a lone number and a boolean are none, though each could be read as bytes:
/// "abcdefghijk" would be a tone of an hour.
std::vector<unsigned char> TakeSequence(const SipJson& notice) {
    const int command = notice.GetCmdIndex();
    const auto type = notice.GetCmdDataType(command);
    std::vector<unsigned char> bytes;
    const auto isNumberList = [&] {
        const auto& list = notice.GetDocument()["SIP"]["CMD"][static_cast<rapidjson::SizeType>(command)]["DA"];
        return !list.Empty() && list[0].IsNumber();
    };
    if (type == rapidjson::kObjectType || (type == rapidjson::kArrayType && isNumberList())) {
        notice.GetCmdDataStream(command, bytes);
    }
    return bytes;
}

}  // namespace

void CAlertExtensionModule::ApplicationReply(SipJson& message) {
    EM_TRACE(3, "\nEM_ALERT            :   -> ApplicationReply()");
    if (stopping_) {
        EM_TRACE(2, "\nEM_ALERT            : The module is stopped - message ignored");
        return;
    }
    const int command = message.GetCmdIndex();
    const unsigned int opCode = message.GetCmdElemValue(command, "OC", 0);
    try {
        TraceReply(message, 2);
        switch (opCode) {
            case CM_StatusTreeComponentInstanceStatus:
            case CM_UmServerUpdateAlert:
                ProcessAlertTrigger(message);
                break;
            case kWriteConfigurationValue:
                FollowSetting(message);
                break;
            default:
                break;
        }
    } catch (...) {
        LetCancellationPass();
        EM_TRACE(1, "\n\nEM_ALERT (REPLY)    : CABINET %04d: FATAL ERROR! EXCEPTION in Reply Handler OpCode 0x%04X!",
                 static_cast<int>(message.GetCmdElemValue(command, "CA", 0)), opCode);
    }
    EM_TRACE(3, "\nEM_ALERT            :   <- ApplicationReply()");
}

/// Applies the notice of a configuration value that was written anywhere in the agent.
void CAlertExtensionModule::FollowSetting(const SipJson& notice) {
    const int command = notice.GetCmdIndex();
    const unsigned int id = notice.GetCmdElemValue(command, "OE", 0);
    const auto rows = SettingTable();
    const auto row = std::find_if(rows.begin(), rows.end(), [id](const SettingRow& r) { return r.id == id; });
    if (row == rows.end()) {
        return;
    }
    if (const auto* sequence = std::get_if<SettingRow::Sequence>(&row->field)) {
        FollowSequence(*sequence, notice);
        return;
    }
    SettingValue value;
    if (!row->Take(notice, value)) {
        return;
    }
    unsigned int oldNumber = 0;
    if (id == kBeepAlertSetting) {
        FollowBeepSwitch(*row, value);
    } else {
        settings_.Change([&](AlertSettings& settings) {
            oldNumber = row->Number(settings);
            row->Store(settings, value);
        });
    }
    if (row->IsSwitch()) {
        TraceSetting(row->noticeTrace, value.number != 0 ? "enabled" : "disabled");
    } else if (row->IsNumber()) {
        TraceSetting(row->noticeTrace, oldNumber, value.number);
    } else if (std::holds_alternative<SettingRow::TraceOnly>(row->field)) {
        TraceSetting(row->noticeTrace, notice.GetCmdElemValue(command, "OI", 0), value.text.c_str());
    } else {
        TraceSetting(row->noticeTrace, value.text.c_str());
    }
}

void CAlertExtensionModule::FollowSequence(SettingRow::Sequence field, const SipJson& notice) {
    const bool isWarning = field == &AlertSettings::beepWarningSequence;
    std::vector<unsigned char> sequence = TakeSequence(notice);
    if (sequence.empty()) {
        if (isWarning) {
            EM_TRACE(1, "\nEM_ALERT (REPLY)    : ERROR! Invalid size (0) of beep warning sequence!");
        } else {
            EM_TRACE(1, "\nEM_ALERT (REPLY)    : ERROR! Invalid size (0) of beep error sequence!");
        }
    } else if (sequence.size() <= kLongestRefusedSequence) {
        if (isWarning) {
            EM_TRACE(1, "\nEM_ALERT (REPLY)    : ERROR! Size of beep warning sequence is lower than %d bytes!",
                     static_cast<int>(kLongestRefusedSequence));
        } else {
            EM_TRACE(1, "\nEM_ALERT (REPLY)    : ERROR! Size of beep error sequence is lower than %d bytes!",
                     static_cast<int>(kLongestRefusedSequence));
        }
    } else {
        settings_.Change([&](AlertSettings& settings) { settings.*field = std::move(sequence); });
    }
}
