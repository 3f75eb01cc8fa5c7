#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <iterator>
#include <malloc.h>
#include <optional>
#include <sstream>
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
#include "xml/TempDirectory.h"

/// A test with the stand-in switched on, and its port log.
class Speaker : public ::testing::Test {
protected:
    std::string PortLog() const { return ReadFile(log_); }

    const CTempDirectory directory_;
    const std::string log_ = directory_ / "ports";
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

std::vector<std::uint32_t> Numbers(const std::string& text) {
    std::istringstream numbers(text);
    return {std::istream_iterator<std::uint32_t>(numbers), {}};
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
const std::string kToneLog = ReadFile(EM_DEVICES "/tone.ports");

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
        EXPECT_EQ(Rows(trace, ""), RowsUpTo(EM_DEVICES "/tone.trace", level));
        EXPECT_EQ(PortLog().substr(kToneLog.size() * (level - 1)), kToneLog);
    }
    std::ifstream divisors(EM_DEVICES "/divisors.cases");
    std::string low, high;
    for (int hz = 0; divisors >> hz >> low >> high;) {
        const std::size_t before = PortLog().size();
        EXPECT_TRUE(CDeviceBeeper::Beep(hz, 0));
        const std::string writes = "write 0x42 width 1 value " + low + "\nwrite 0x42 width 1 value " + high + '\n';
        EXPECT_EQ(PortLog().find(writes, before), before + 61) << hz;
    }
    EXPECT_EQ(low + high, "0x000x00");
    driver_.reset();
    const CTraceCapture trace;
    EXPECT_TRUE(CDeviceBeeper::Beep(1000, 1000));
    EXPECT_EQ(Rows(trace, ""), RowsUpTo(EM_DEVICES "/absent.trace", 5));
}

TEST_F(Speaker, SequencesAreReadWithinTheirBytesAndRepeated) {
    CEvent stop(false, true);
    std::ifstream cases(EM_DEVICES "/sequences.cases");
    std::uint32_t bytes = 0, repeat = 0, interval = 0;
    int played = 0;
    for (; cases >> bytes >> repeat >> interval; ++played) {  // and the numbers, "|", what they make
        const CTraceCapture trace;
        std::string numbers, course;
        std::getline(std::getline(cases, numbers, '|').ignore(), course);
        PlayBlock(Sequence(Numbers(numbers), bytes), stop, repeat, interval);
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
    std::ifstream cases(EM_DEVICES "/stops.cases");
    int stops = 0;
    for (std::string awaited; std::getline(cases, awaited, '|'); ++stops) {
        const Bytes tones = Sequence(Numbers(awaited));
        std::getline(cases, awaited);
        const CTraceCapture trace;
        CEvent stop(false, true);
        const bool inTone = awaited[0] == 'u';
        onSleep = [&] { EXPECT_TRUE(!inTone || trace.Await("Set event")); };
        {
            const std::jthread stopper([&] { EXPECT_TRUE(trace.Await(awaited) && stop.Set()); });
            PlayBlock(tones, stop, SpeakerBlock::kEndless, kForever);
        }
        onSleep = nullptr;
        const std::string course = Course(trace);
        EXPECT_TRUE(!inTone || course == "w0 1000 Hz 5 usleep 5000 signal ") << course;
        PlayBlock(tones, stop, 1, 0);  // the event is still set
        EXPECT_EQ(Course(trace), course + "signal ");
    }
    EXPECT_EQ(stops, 4);
}

TEST_F(Speaker, PlayerStartsAnewFromTheFirstToneAndEndsWithItsOwner) {
    const CTraceCapture trace;
    {
        CBeepPlayer player;
        for (const int start : {1, 2}) {
            EXPECT_TRUE(player.Start(Sequence({1000, 0, start == 1 ? kForever : 0})));
            EXPECT_TRUE(trace.Await("Switch beeper off", start));
        }
        EXPECT_TRUE(trace.Await("prepare time", 5) && Course(trace).ends_with(" w0 w0 w15000 ")) << Course(trace);
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
    std::ifstream cases(EM_DEVICES "/requests.cases");
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
