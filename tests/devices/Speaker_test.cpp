// SPDX-License-Identifier: Apache-2.0
#include <cstring>
#include <fcntl.h>
#include <malloc.h>
#include <numeric>
#include <optional>
#include <regex>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

#include "agent/speaker/BusIoDriver.h"
#include "devices/BeepPlayer.h"
#include "devices/DeviceBeeper.h"
#include "devices/SpeakerBlock.h"
#include "devices/SystemSpeaker.h"
#include "platform/diagnostics/Trace.h"
#include "support/Cases.h"
#include "support/TraceCapture.h"

/// A test with the stand-in switched on, its port log, and the tone that it heard last.
class Speaker : public ::testing::Test {
protected:
    std::string PortLog() const { return ReadFile(log_); }

    const CTempDirectory directory_;
    const std::string log_ = directory_ / "ports";
    std::string tone_;
    std::optional<CBusIoDriver> driver_{
        std::in_place, BusIoDriverOptions{{}, log_, [this](const std::string& tone) { tone_ = tone; }}};
};

namespace {

using Bytes = std::vector<unsigned char>;

std::function<void()> onSleep;

Bytes Sequence(const std::string& text, std::size_t bytes = SIZE_MAX) {
    std::istringstream input(text);
    const std::vector<std::uint32_t> numbers(std::istream_iterator<std::uint32_t>(input), {});
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
const std::string kToneLog = ReadFile(EM_TEST_DATA "/tone.ports");

}  // namespace

// This program's own: nobody sleeps.
extern "C" __attribute__((visibility("default"))) int usleep(unsigned int microseconds) {
    EM_TRACE(1, "usleep %u", microseconds);
    onSleep ? onSleep() : void();
    return 0;
}

TEST_F(Speaker, BeepProgramsTheTimerAndSwitchesTheSpeaker) {
    const auto beep = [] { EXPECT_TRUE(CDeviceBeeper::Beep(1000, 150)); };
    EXPECT_EQ(TracesByLevel(beep), ReadFile(EM_TEST_DATA "/tone.trace"));
    EXPECT_EQ(PortLog(), kToneLog + kToneLog + kToneLog + kToneLog + kToneLog);
    for (const auto& row : Cases("devices.cases", "divisor")) {
        const std::size_t before = PortLog().size();
        EXPECT_TRUE(CDeviceBeeper::Beep(std::stoi(row[1]), 0));
        const std::string writes = "write 0x42 width 1 value " + row[2] + "\nwrite 0x42 width 1 value " + row[3] + '\n';
        EXPECT_EQ(PortLog().find(writes, before), before + 61) << row[1];
        EXPECT_TRUE(tone_.starts_with(row[4] + " Hz for ")) << row[1] << ": " << tone_;
    }
    onSleep = [this] { driver_.reset(); };
    beep();
    onSleep = nullptr;
    EXPECT_TRUE(tone_.starts_with("1000 Hz for ")) << tone_;  // which ended with the driver
    EXPECT_EQ(TracesByLevel(beep), ReadFile(EM_TEST_DATA "/absent.trace"));
}

TEST_F(Speaker, SequencesAreReadWithinTheirBytesAndRepeated) {
    CEvent stop(false, true);
    for (const auto& row : Cases("devices.cases", "sequence")) {
        const CTraceCapture trace;
        PlayBlock(Sequence(row[4], std::stoul(row[1])), stop, Number(row[2]), Number(row[3]));
        EXPECT_EQ(Course(trace), row[5]) << row[1] << " bytes, repeat " << row[2];
        EXPECT_EQ(trace.Prints().back().rfind("THREAD_RETURN: ## INFO: Thread = 0x", 0), 0U);
    }
    stop.Set();
    const std::size_t mapped = ::mallinfo2().hblkhd;
    PlayBlock(Bytes(1 << 20), stop, 1, 0);
    EXPECT_EQ(::mallinfo2().hblkhd, mapped);  // the block is freed
    EXPECT_EQ(TracesByLevel([] { EXPECT_EQ(CSystemSpeaker::RunAsThread_BeeperThread(nullptr), nullptr); }),
              "1 THREAD_RETURN: ## INFO: Thread = 0x# exited, Return = 0x00000000##\\n\n");
}

TEST_F(Speaker, StopEndsAToneAndEveryKindOfPause) {
    for (const auto& row : Cases("devices.cases", "stop")) {
        const Bytes tones = Sequence(row[1]);
        const CTraceCapture trace;
        CEvent stop(false, true);
        const bool inTone = row[2] == "usleep 5000";
        onSleep = [&] { EXPECT_TRUE(!inTone || trace.Await("Set event")); };
        {
            const std::jthread stopper([&] { EXPECT_TRUE(trace.Await(row[2]) && stop.Set()); });
            PlayBlock(tones, stop, SpeakerBlock::kEndless, 0xFFFFFFFF);
        }
        onSleep = nullptr;
        const std::string course = Course(trace);
        EXPECT_TRUE(!inTone || course == "w0 1000 Hz 5 usleep 5000 signal ") << course;
        EXPECT_EQ(trace.Count("SIGNAL("), 1) << row[2];  // who has seen it waits no more
        PlayBlock(tones, stop, 1, 0);                    // the event is still set
        EXPECT_EQ(Course(trace), course + "signal ");
    }
}

TEST_F(Speaker, PlayerStartsAnewFromTheFirstToneAndEndsWithItsOwner) {
    const CTraceCapture trace;
    {
        CBeepPlayer player;
        for (const int start : {1, 2}) {
            EXPECT_TRUE(player.Start(Sequence(start == 1 ? "1000 0 4294967295" : "1000 0 0")));
            EXPECT_TRUE(trace.Await("Switch beeper off", start));
        }
        EXPECT_TRUE(trace.Await("prepare time", 5) && Course(trace).ends_with(" w0 w0 w15000 ")) << Course(trace);
        EXPECT_EQ(
            trace.Count("Start a thread, Prio=63, Suspend=0, StackSize=0x00000000, Waitable=1, KillAliveThread=0"), 2);
        EXPECT_FALSE(player.Start(Sequence("2000 0", 7)));
        EXPECT_EQ(trace.Count("THREAD_RETURN"), 2);                   // silent by now
        EXPECT_EQ(trace.Count("CThread::WaitForTermination: T"), 3);  // each start looks twice, also for no thread
        EXPECT_TRUE(player.Start(Sequence("1000 0 4294967295")));
        player.Close();
        EXPECT_EQ(trace.Count("THREAD_RETURN"), 3);
        EXPECT_FALSE(player.Start(Sequence("1000 0")));
        player.Open();
        EXPECT_TRUE(player.Start(Sequence("1000 0 4294967295")));
        player.Stop();
        EXPECT_EQ(trace.Count("THREAD_RETURN"), 4);
        EXPECT_TRUE(player.Start(Sequence("1000 0")));
    }
    EXPECT_EQ(trace.Count("THREAD_RETURN"), 5);
}

TEST_F(Speaker, StartAndStopStormsNeverOverlapTones) {
    {
        CBeepPlayer player;
        const auto storm = [&] {
            for (int round = 0; round < 40; ++round) {
                player.Start(Sequence("1000 0 0 1000 1 4294967295"));
                round % 3 == 0 ? player.Stop() : void();
            }
        };
        { const std::jthread one(storm), two(storm), three(storm); }
        const CTraceCapture trace;  // a storm may leave no time for any tone
        EXPECT_TRUE(player.Start(Sequence("1000 0 4294967295")) && trace.Await("Switch beeper off"));
    }
    std::string wanted;
    while (wanted.size() < PortLog().size()) {
        wanted += kToneLog;
    }
    EXPECT_TRUE(!wanted.empty() && PortLog() == wanted);
}

/// Between tones there is silence.
TEST_F(Speaker, ASoundFileHoldsTheTonesInTheirPlaces) {
    const std::string path = directory_ / "wav";
    CSpeakerRecorder recorder(std::make_unique<CWavWriter>(path));
    std::chrono::steady_clock::time_point now;
    std::string lines;
    for (const std::uint32_t divisor : {1193U, 0U, 596U, 0U}) {
        lines += recorder.Sound(divisor, now += std::chrono::seconds(1)) + '|';
    }
    EXPECT_EQ(lines, "|1000 Hz for 1000 ms||2000 Hz for 1000 ms|");
    const std::string file = ReadFile(path);
    const auto number = [&](std::size_t at, std::size_t size = sizeof(std::uint32_t)) {
        std::uint32_t value = 0;
        std::memcpy(&value, &file.at(at), size);
        return value;
    };
    constexpr std::size_t kHeader = 44, kSecond = 88200;  // bytes
    EXPECT_TRUE(file.size() == kHeader + 3 * kSecond && number(4) == file.size() - 8 && number(40) == 3 * kSecond);
    EXPECT_EQ(file.substr(8, 32), std::string("WAVEfmt \x10\0\0\0\1\0\1\0\x44\xAC\0\0\x88\x58\1\0\2\0\x10\0data", 32));
    const auto* samples = reinterpret_cast<const std::int16_t*>(&file[kHeader]);
    EXPECT_EQ(
        std::inner_product(samples + 1, samples + 3 * kSecond / 2, samples, 0, std::plus<>(), std::not_equal_to<>()),
        6005);
}

TEST_F(Speaker, DriverRefusesWhatThePortsWouldNotTake) {
    const int fd = ::open("/dev/pci/smbus", O_WRONLY | O_CREAT | O_EXCL | O_TRUNC | O_NONBLOCK, 0);
    std::string log = "open O_WRONLY|O_CREAT|O_EXCL|O_TRUNC|O_NONBLOCK\n";
    for (const auto& row : Cases("devices.cases", "request")) {
        std::uint32_t request[] = {Number(row[2], 16), Number(row[3], 16), Number(row[4], 16)};
        const std::string error = ::ioctl(fd, Number(row[1], 16), request) != 0 ? ::strerrorname_np(errno) : "0xB6";
        EXPECT_NE(row[5].find(error, row[5].size() - 8), std::string::npos) << row[5];
        log += row[5] + '\n';
    }
    EXPECT_EQ(::close(fd), 0);
    EXPECT_EQ(::close(fd), -1);
    EXPECT_EQ(PortLog(), log + "close\n");
}
