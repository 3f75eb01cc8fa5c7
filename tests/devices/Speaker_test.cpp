#include <cstring>

#include "StandIn.h"
#include "devices/BeepPlayer.h"
#include "devices/DeviceBeeper.h"
#include "devices/SpeakerBlock.h"
#include "devices/SystemSpeaker.h"
#include "support/TraceCapture.h"

namespace {

using Speaker = StandIn;
using Bytes = std::vector<unsigned char>;
using Hz = std::vector<std::string>;

constexpr std::uint32_t kForever = 0xFFFFFFFF;

Bytes Sequence(const std::vector<std::uint32_t>& numbers, std::size_t bytes = SIZE_MAX) {
    const auto* first = reinterpret_cast<const unsigned char*>(numbers.data());
    return {first, first + std::min(bytes, numbers.size() * sizeof(std::uint32_t))};
}

void PlayBlock(const Bytes& tones, CEvent& stop, std::uint32_t repeat, std::uint32_t interval) {
    EXPECT_EQ(CSystemSpeaker::RunAsThread_BeeperThread(MakeSpeakerBlock(tones, stop, repeat, interval).release()),
              nullptr);
}

/// The port accesses of a tone of 1000 Hz.
const std::string kToneLog =
    "open O_RDWR|O_APPEND|O_CLOEXEC\nwrite 0x43 width 1 value 0xB6\n"
    "write 0x42 width 1 value 0xA9\nwrite 0x42 width 1 value 0x04\n"
    "read 0x61 width 1 value 0x30\nwrite 0x61 width 1 value 0x33\n"
    "read 0x61 width 4 value 0x1CFFFF33\nwrite 0x61 width 4 value 0x30\nclose\n";

}  // namespace

TEST_F(Speaker, BeepProgramsTheTimerAndSwitchesTheSpeaker) {
    const CTraceCapture trace;
    EXPECT_TRUE(CDeviceBeeper::Beep(1000, 0));
    EXPECT_EQ(PortLog(), kToneLog);
    EXPECT_EQ(trace.All().rfind("\nCDeviceBeeper       : Beep 1000 Hz 0 msec\nCDeviceBeeper       : Beep using SCSBB"
                                "\nCDeviceBusIoBase    : connect to BUSIO device..."
                                "\nCDeviceIo::Open: Device /dev/pci/smbus  opened, fd=",
                                0),
              0U);
    EXPECT_TRUE(trace.Has("\nCDeviceBusIoBase    : connected"));
    EXPECT_TRUE(CDeviceBeeper::Beep(18, 0));  // 0x102EF, of which the timer has room for 16 bits
    EXPECT_NE(PortLog().find("write 0x42 width 1 value 0xEF\nwrite 0x42 width 1 value 0x02\n"), std::string::npos);
    CEvent stop(false, true);
    PlayBlock(Sequence({0xFFFFFFFF, 0, 0, 0x80000000, 0}), stop, 0, 0);  // 1193167 by -1 and by the lowest number
    EXPECT_NE(PortLog().find("write 0x42 width 1 value 0x31\nwrite 0x42 width 1 value 0xCB\n"), std::string::npos);
    EXPECT_NE(PortLog().find("write 0x42 width 1 value 0x00\nwrite 0x42 width 1 value 0x00\n"), std::string::npos);
    driver_.reset();
    EXPECT_TRUE(CDeviceBeeper::Beep(1000, 1000000));
    EXPECT_EQ(trace.Prints().back(), "\nCDeviceBusIoBase    : notconnected");
}

TEST_F(Speaker, SequencesAreReadWithinTheirBytesAndRepeated) {
    CEvent stop(false, true);
    const std::vector<std::uint32_t> two = {1000, 0, 0, 2000, 0, 0};
    const std::vector<std::uint32_t> rests = {0, kForever, 0, 0, kForever, 0, 2000, 0, 0};
    const struct {
        Bytes tones;
        std::uint32_t repeat, interval;
        Hz wanted;
        int leftOut;
    } cases[] = {
        {Sequence(two, 7), SpeakerBlock::kEndless, 0, {}, 0},
        {Sequence(two, 8), 0, 0, {"1000 Hz"}, 0},
        {Sequence(two, 9), 1, 0, {"1000 Hz"}, 0},
        {Sequence(two, 20), 1, kForever, {"1000 Hz", "2000 Hz"}, 0},  // the last pass has no interval after it
        {Sequence(two, 24), 2, 1, {"1000 Hz", "2000 Hz", "1000 Hz", "2000 Hz"}, 0},
        {Sequence(two, 8), 3, 0, {"1000 Hz", "1000 Hz", "1000 Hz"}, 0},
        {Sequence(rests), 1, 0, {"2000 Hz"}, 2},
        {Sequence(rests, 24), SpeakerBlock::kEndless, 0, {}, 2},  // would else never rest
        {Sequence(rests, 24), 2, 1, {}, 4},
        {Sequence({0, 0, 1}), 2, 0, {}, 2},
    };
    Hz heard;
    for (const auto& test : cases) {
        const CTraceCapture trace(1);
        PlayBlock(test.tones, stop, test.repeat, test.interval);
        heard.insert(heard.end(), test.wanted.begin(), test.wanted.end());
        EXPECT_EQ(Tones(), heard) << test.tones.size() << " bytes, repeat " << test.repeat;
        EXPECT_EQ(trace.Count("left out"), test.leftOut);
        EXPECT_EQ(trace.Prints().back().rfind("THREAD_RETURN: ## INFO: Thread = 0x", 0), 0U);
    }
    EXPECT_EQ(CSystemSpeaker::RunAsThread_BeeperThread(nullptr), nullptr);
}

TEST_F(Speaker, StopEndsAToneAndEveryKindOfPause) {
    const struct {
        std::uint32_t msec;
        std::size_t bytes;
        const char* awaited;
    } cases[] = {
        {100, 24, "Switch beeper on"},  // in a tone
        {0, 24, "Switch beeper off"},   // in the pause after it
        {0, 8, "Switch beeper off"},    // between two passes
        {0, 0, "left out"},             // in the pause of a tone of 0 Hz
    };
    std::size_t played = 0;
    for (const auto& test : cases) {
        const CTraceCapture trace;
        CEvent stop(false, true);
        const bool rest = test.bytes == 0;
        const Bytes tones =
            rest ? Sequence({0, 0, kForever}) : Sequence({1000, test.msec, kForever, 2000, 0, 0}, test.bytes);
        std::thread thread([&] { PlayBlock(tones, stop, SpeakerBlock::kEndless, kForever); });
        EXPECT_TRUE(WaitUntil([&] { return trace.Has(test.awaited); }));
        stop.Set();
        thread.join();
        played += rest ? 0 : 1;
        EXPECT_EQ(Tones(), Hz(played, "1000 Hz"));
        PlayBlock(tones, stop, 1, 0);  // the event is still set
        EXPECT_EQ(Tones().size(), played);
    }
}

TEST_F(Speaker, PlayerStartsAnewFromTheFirstToneAndEndsWithItsOwner) {
    CBeepPlayer player;
    for (const std::size_t start : {1U, 2U}) {
        EXPECT_TRUE(player.Start(Sequence({1000, 0, kForever, 2000, 0, 0})));
        EXPECT_TRUE(WaitUntil([&] { return Tones() == Hz(start, "1000 Hz"); }));
    }
    EXPECT_FALSE(player.Start(Sequence({2000, 0}, 7)));
    EXPECT_TRUE(player.Start(Sequence({2000, 0})));
}

TEST_F(Speaker, StartAndStopStormsNeverOverlapTones) {
    const CTraceCapture trace(1);
    std::atomic<int> starts{0};
    {
        CBeepPlayer player;
        std::vector<std::jthread> threads;
        threads.reserve(4);
        for (int number = 0; number < 4; ++number) {
            threads.emplace_back([&, number] {
                for (int round = 0; round < 40; ++round) {
                    starts += player.Start(Sequence({1000, 0, 0, 1000, 1, kForever})) ? 1 : 0;
                    if ((round + number) % 3 == 0) {
                        player.Stop();
                    }
                }
            });
        }
    }
    EXPECT_EQ(trace.Count("THREAD_RETURN"), starts);
    std::string wanted;
    for (std::size_t tone = 0; tone < Tones().size(); ++tone) {
        wanted += kToneLog;
    }
    EXPECT_TRUE(!wanted.empty() && PortLog() == wanted);
}
