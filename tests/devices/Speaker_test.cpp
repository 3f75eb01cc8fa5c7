#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <iterator>
#include <malloc.h>
#include <optional>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "agent/BusIoDriver.h"
#include "devices/BeepPlayer.h"
#include "devices/DeviceBeeper.h"
#include "devices/SpeakerBlock.h"
#include "devices/SystemSpeaker.h"
#include "platform/Trace.h"
#include "support/TraceRows.h"

/// @return false when the condition did not become true in time
template <typename Condition>
bool WaitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    return condition();
}

/// A test with the stand-in switched on, and its port log.
class Speaker : public ::testing::Test {
protected:
    void TearDown() override { std::filesystem::remove(log_); }

    std::string PortLog() const {
        std::ifstream file(log_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const std::string log_ = ::testing::TempDir() + "ports." + std::to_string(::getpid());
    std::optional<CBusIoDriver> driver_{std::in_place, BusIoDriverOptions{{}, log_, [](const std::string&) {}}};
};

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::uint32_t kForever = 0xFFFFFFFF;

std::function<void()> onSleep;

Bytes Sequence(const std::vector<std::uint32_t>& numbers, std::size_t bytes = SIZE_MAX) {
    const auto* first = reinterpret_cast<const unsigned char*>(numbers.data());
    return {first, first + std::min(bytes, numbers.size() * sizeof(std::uint32_t))};
}

void PlayBlock(const Bytes& tones, CEvent& stop, std::uint32_t repeat, std::uint32_t interval) {
    EXPECT_EQ(CSystemSpeaker::RunAsThread_BeeperThread(MakeSpeakerBlock(tones, stop, repeat, interval).release()),
              nullptr);
}

/// What a sequence did, in order: waits at the stop event ("w", ms), tones, and a wait that found it signalled ("set").
std::string Course(const CTraceCapture& trace) {
    const std::regex wait(R"(sec=(\d+),ts_beg:nsec=(\d+)\) -> \(ts:sec=(\d+),ts:nsec=(\d+))");
    const std::regex other(R"(Beep (\S+ Hz \d+)|(usleep \d+)|(Tone of \d+)|(signal)ed -->)");
    std::string course;
    std::smatch part;
    for (const std::string& print : trace.Prints()) {
        if (std::regex_search(print, part, wait)) {
            const long nanoseconds = std::stol(part[4]) - std::stol(part[2]);
            course +=
                "w" + std::to_string((std::stol(part[3]) - std::stol(part[1])) * 1000 + nanoseconds / 1000000) + ' ';
        } else if (std::regex_search(print, part, other)) {
            course += part.str(1) + part.str(2) + part.str(3) + part.str(4) + ' ';
        }
    }
    return course;
}

/// The port accesses of a tone of 1000 Hz.
const std::string kToneLog =
    "open O_RDWR|O_APPEND|O_CLOEXEC\nwrite 0x43 width 1 value 0xB6\n"
    "write 0x42 width 1 value 0xA9\nwrite 0x42 width 1 value 0x04\n"
    "read 0x61 width 1 value 0x30\nwrite 0x61 width 1 value 0x33\n"
    "read 0x61 width 4 value 0x1CFFFF33\nwrite 0x61 width 4 value 0x30\nclose\n";

}  // namespace

// This program's own: nobody sleeps.
extern "C" __attribute__((visibility("default"))) int usleep(unsigned int microseconds) {
    EM_TRACE(1, "usleep %u", microseconds);
    onSleep ? onSleep() : void();
    return 0;
}

TEST_F(Speaker, BeepProgramsTheTimerAndSwitchesTheSpeaker) {
    for (unsigned int level = 1; level <= 5; ++level) {
        const CTraceCapture trace(level);
        EXPECT_TRUE(CDeviceBeeper::Beep(1000, 150));
        EXPECT_EQ(Rows(trace, ""), RowsUpTo(EM_TONE_ROWS, level));
        EXPECT_EQ(PortLog().substr(kToneLog.size() * (level - 1)), kToneLog);
    }
    const std::pair<int, const char*> divisors[] = {
        {18, "0xEF\nwrite 0x42 width 1 value 0x02\n"},  // 0x102EF, of which the timer has room for 16 bits
        {-1, "0x31\nwrite 0x42 width 1 value 0xCB\n"},  // as do frequencies from 2^31
        {INT_MIN, "0x00\nwrite 0x42 width 1 value 0x00\n"}, {1193167, "0x01\nwrite 0x42 width 1 value 0x00\n"},
        {1193168, "0x00\nwrite 0x42 width 1 value 0x00\n"},
    };
    for (const auto& [hz, writes] : divisors) {
        const std::size_t before = PortLog().size();
        EXPECT_TRUE(CDeviceBeeper::Beep(hz, 0));
        EXPECT_EQ(PortLog().find(std::string("write 0x42 width 1 value ") + writes, before), before + 61) << hz;
    }
    driver_.reset();
    const CTraceCapture trace;
    EXPECT_TRUE(CDeviceBeeper::Beep(1000, 1000));
    EXPECT_EQ(trace.All(),
              "\nCDeviceBeeper       : Beep 1000 Hz 1000 msec\nCDeviceBeeper       : Beep using SCSBB"
              "\nCDeviceBusIoBase    : connect to BUSIO device..."
              "\nCDeviceIo::Open: Device /dev/pci/smbus NOT opened, fd=-1\nCDeviceBusIoBase    : notconnected");
}

TEST_F(Speaker, SequencesAreReadWithinTheirBytesAndRepeated) {
    CEvent stop(false, true);
    std::ifstream cases(EM_SEQUENCES);
    std::uint32_t bytes = 0, repeat = 0, interval = 0;
    int played = 0;
    for (; cases >> bytes >> repeat >> interval; ++played) {  // and the numbers, "|", what they make
        const CTraceCapture trace;
        const std::vector<std::uint32_t> numbers(std::istream_iterator<std::uint32_t>(cases), {});
        cases.clear();
        std::string course;
        std::getline(cases.ignore(2), course);
        PlayBlock(Sequence(numbers, bytes), stop, repeat, interval);
        EXPECT_EQ(Course(trace), course) << bytes << " bytes, repeat " << repeat;
        EXPECT_EQ(trace.Prints().back().rfind("THREAD_RETURN: ## INFO: Thread = 0x", 0), 0U);
    }
    EXPECT_EQ(played, 10);
    stop.Set();
    const std::size_t mapped = ::mallinfo2().hblkhd;
    PlayBlock(Bytes(1 << 20), stop, 1, 0);
    EXPECT_EQ(::mallinfo2().hblkhd, mapped);  // the block is freed
    const CTraceCapture trace(1);
    EXPECT_EQ(CSystemSpeaker::RunAsThread_BeeperThread(nullptr), nullptr);
    EXPECT_EQ(Rows(trace, ""), "THREAD_RETURN: ## INFO: Thread = # exited, Return = 0x00000000##\\n\n");
}

TEST_F(Speaker, StopEndsAToneAndEveryKindOfPause) {
    const std::pair<Bytes, const char*> cases[] = {
        {Sequence({1000, 5, kForever}), "usleep 5000"},        // in a tone
        {Sequence({1000, 5, kForever}), "Switch beeper off"},  // in the pause after it
        {Sequence({1000, 5}), "Switch beeper off"},            // between two passes
        {Sequence({0, 5, kForever}), "left out"},              // in the pause of a tone of 0 Hz
    };
    for (const auto& [tones, awaited] : cases) {
        const CTraceCapture trace;
        CEvent stop(false, true);
        const bool inTone = awaited[0] == 'u';
        onSleep = [&] { EXPECT_TRUE(!inTone || WaitUntil([&] { return stop.IsSet(); })); };
        {
            const std::jthread stopper([&, text = awaited] {
                EXPECT_TRUE(WaitUntil([&] { return trace.Has(text); }));
                stop.Set();
            });
            PlayBlock(tones, stop, SpeakerBlock::kEndless, kForever);
        }
        onSleep = nullptr;
        const std::string course = Course(trace);
        EXPECT_TRUE(!inTone || course == "w0 1000 Hz 5 usleep 5000 signal ") << course;
        PlayBlock(tones, stop, 1, 0);  // the event is still set
        EXPECT_EQ(Course(trace), course + "signal ");
    }
}

TEST_F(Speaker, PlayerStartsAnewFromTheFirstToneAndEndsWithItsOwner) {
    const CTraceCapture trace;
    {
        CBeepPlayer player;
        for (const int start : {1, 2}) {
            EXPECT_TRUE(player.Start(Sequence({1000, 0, start == 1 ? kForever : 0})));
            EXPECT_TRUE(WaitUntil([&] { return trace.Count("Switch beeper off") == start; }));
        }
        EXPECT_TRUE(WaitUntil([&] { return Course(trace).ends_with(" w0 w0 w15000 "); }));
        EXPECT_EQ(trace.Count("Start a thread, Prio=63, Suspend=0, StackSize=0x00000000, Waitable=1, KillAlive"), 2);
        EXPECT_FALSE(player.Start(Sequence({2000, 0}, 7)));
        EXPECT_EQ(trace.Count("THREAD_RETURN"), 2);  // silent by now
        EXPECT_TRUE(player.Start(Sequence({1000, 0, kForever})));
        player.Close();
        EXPECT_EQ(trace.Count("THREAD_RETURN"), 3);
        EXPECT_FALSE(player.Start(Sequence({1000, 0})));
        player.Open();
        EXPECT_TRUE(player.Start(Sequence({1000, 0, kForever})));
        player.Stop();
        EXPECT_EQ(trace.Count("THREAD_RETURN"), 4);
        EXPECT_TRUE(player.Start(Sequence({1000, 0, kForever})));
    }
    EXPECT_EQ(trace.Count("THREAD_RETURN"), 5);
}

TEST_F(Speaker, StartAndStopStormsNeverOverlapTones) {
    {
        CBeepPlayer player;
        const auto storm = [&] {
            for (int round = 0; round < 40; ++round) {
                player.Start(Sequence({1000, 0, 0, 1000, 1, kForever}));
                round % 3 == 0 ? player.Stop() : void();
            }
        };
        const std::jthread one(storm), two(storm), three(storm);
    }
    std::string wanted;
    while (wanted.size() < PortLog().size()) {
        wanted += kToneLog;
    }
    EXPECT_TRUE(!wanted.empty() && PortLog() == wanted);
}

TEST_F(Speaker, DriverRefusesWhatThePortsWouldNotTake) {
    const int fd = ::open("/dev/pci/smbus", O_WRONLY);
    std::string log = "open O_WRONLY\n";
    std::ifstream cases(EM_PORT_REQUESTS);
    unsigned long code = 0;
    std::uint32_t request[3];
    for (std::string line; cases >> std::hex >> code >> request[0] >> request[1] >> request[2];) {
        std::getline(cases.ignore(), line);
        const std::string error = ::ioctl(fd, code, request) != 0 ? ::strerrorname_np(errno) : "0xB6";
        EXPECT_NE(line.find(error, line.size() - 8), std::string::npos) << line;
        log += line + '\n';
    }
    EXPECT_EQ(::close(fd), 0);
    EXPECT_EQ(::close(fd), -1);
    EXPECT_EQ(PortLog(), log + "close\n");
}
