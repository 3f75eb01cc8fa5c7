#include <chrono>
#include <thread>

#include "StartedModule.h"
#include "support/TraceCapture.h"

namespace {

constexpr char kAcknowledge[] = R"("OC":"0x2241")";
constexpr char kBeepOn[] = R"("OC":"0xE002","OE":"0x0400","DA":1)";
constexpr char kBeepOff[] = R"("OC":"0xE002","OE":"0x0400","DA":0)";
constexpr char kMailOff[] = R"("OC":"0xE002","OE":"0x0410","DA":0)";

}  // namespace

/// What an agent does while the module waits for it. The sequence plays as long as the beeper's thread lives.
class Beep : public StartedModule {
protected:
    static std::ptrdiff_t Threads() {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    }

    /// Waits a second for it: a thread is seen for a moment after it was joined.
    bool Becomes(bool silent) const {
        for (int i = 0; i < 100 && (Threads() == silent_) != silent; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return (Threads() == silent_) == silent;
    }

    /// Does it at the next question, or in the next delivery of an event, and never again.
    void Once(std::function<void()>& when, std::function<void()> what) {
        when = [&when, what = std::move(what)] {
            const auto now = what;
            when = [] {};
            now();
        };
    }

    std::ptrdiff_t silent_ = Threads();
};

TEST_F(Beep, NothingSoundsThatWasAcknowledgedOrSwitchedOffMeanwhile) {
    const struct {
        const char* what;
        std::function<void()>& when;
        std::function<void()> meanwhile;
        bool isSilent;
    } cases[] = {
        {"nothing", agent_.onEvent, [] {}, false},
        {"acknowledged in its delivery", agent_.onEvent, [&] { Request(kAcknowledge); }, true},
        {"switched off in its delivery", agent_.onEvent, [&] { Event(kBeepOff); }, true},
        {"switched off before its answer", agent_.onRequest, [&] { Event(kBeepOff); }, true},
        {"switched off and on before its answer", agent_.onRequest, [&] { Event(kBeepOff), Event(kBeepOn); }, false},
        {"OK in its delivery", agent_.onEvent, [&] { agent_.systemStatus = 1, Event(), agent_.systemStatus = 3; },
         true},
    };
    for (const auto& c : cases) {
        Once(c.when, c.meanwhile);
        Event();
        EXPECT_TRUE(Becomes(c.isSilent)) << c.what;
        Event(kBeepOn);
        Event();
        EXPECT_TRUE(Becomes(false)) << c.what;
        Request(kAcknowledge);
        EXPECT_TRUE(Becomes(true)) << c.what;
    }
}

TEST_F(Beep, StopLeavesTheSpeakerSilentEventsRefusedAndRequestsAnswered) {
    Event();
    EXPECT_TRUE(Becomes(false));
    module_->Stop();
    --silent_;  // the worker has ended as well
    EXPECT_TRUE(Becomes(true));
    EXPECT_EQ(Request(kAcknowledge), kPending);
    Event();
    EXPECT_EQ(Request(R"("OC":"0x2240")").second, 0U);
    EXPECT_EQ(Request(R"("OC":"0x2243")").first, 6U);
}

TEST_F(Beep, MailsThatAreSwitchedOffBeforeTheAnswerAreNotSent) {
    const CTraceCapture trace;
    Once(agent_.onRequest, [&] { Event(kMailOff); });
    Event();
    EXPECT_FALSE(trace.Has("Generate eMail alert"));
}
