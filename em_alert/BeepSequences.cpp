#include "em_alert/AlertExtensionModule.h"
#include "platform/Trace.h"

namespace {

constexpr std::size_t kShortestSequence = 8;  // bytes: one tone without a pause

}  // namespace

bool CAlertExtensionModule::BeepSequenceOn(AlerterSeverity severity) {
    EM_TRACE(2, "\nEM_ALERT            : Beep tone for severity %d", static_cast<int>(severity));
    if (severity == AlerterSeverityUnknown) {
        EM_TRACE(1, "\nEM_ALERT            : ERROR! Unknwon alert severity not handled!");
        return false;
    }
    const auto settings = settings_.Get();
    std::vector<unsigned char> sequence;
    if (severity == AlerterSeverityWarning) {
        EM_TRACE(2, "\nEM_ALERT            : Play beep tone warning sequence");
        sequence = settings->beepWarningSequence;
    } else if (severity == AlerterSeverityError) {
        EM_TRACE(2, "\nEM_ALERT            : Play beep tone error sequence");
        sequence = settings->beepErrorSequence;
    }
    if (sequence.empty()) {
        BeepSequenceOff();
        return false;
    }
    if (sequence.size() < kShortestSequence) {
        beeper_.Stop();
        return false;
    }
    return beeper_.Start(sequence);
}

void CAlertExtensionModule::BeepSequenceOff() {
    EM_TRACE(2, "\nEM_ALERT            : Stop beep tone sequence");
    beeper_.Stop();
}
