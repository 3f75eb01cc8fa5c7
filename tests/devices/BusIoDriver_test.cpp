#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>

#include "StandIn.h"

extern "C" int __open_2(const char* path, int flags);
extern "C" int __open64_2(const char* path, int flags);

namespace {

constexpr char kNode[] = "/dev/pci/smbus";
constexpr unsigned long kWrite = 0x400C736E;
constexpr unsigned long kRead = 0x800C736D;

using BusIoDriver = StandIn;

/// Samples of a WAV file, which has to be as long as its header says.
std::vector<std::int16_t> Samples(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::uint32_t header[11] = {};
    file.read(reinterpret_cast<char*>(header), sizeof header);
    EXPECT_EQ(header[1], std::filesystem::file_size(path) - 8);
    EXPECT_EQ(header[10], std::filesystem::file_size(path) - sizeof header);
    std::vector<std::int16_t> samples(header[10] / 2);
    file.read(reinterpret_cast<char*>(samples.data()), header[10]);
    return samples;
}

double MeasuredHz(const std::vector<std::int16_t>& samples, std::size_t first, std::size_t last) {
    int rises = 0;
    for (std::size_t at = first + 1; at < last; ++at) {
        rises += samples[at - 1] < 0 && samples[at] > 0 ? 1 : 0;
    }
    return rises * 44100.0 / static_cast<double>(last - first);
}

}  // namespace

TEST_F(BusIoDriver, RefusesWhatThePortsWouldNotTake) {
    const int fd = ::open(kNode, O_WRONLY);
    const struct {
        unsigned long code;
        std::uint32_t request[3];
        const char* log;
    } cases[] = {
        {kWrite, {0x42, 1, 0x10}, "write 0x42 width 1 value 0x10 refused (EINVAL)"},
        {kWrite, {0x43, 1, 0x36}, "write 0x43 width 1 value 0x36 refused (EINVAL)"},
        {kWrite, {0x43, 1, 0xB6}, "write 0x43 width 1 value 0xB6"},
        {kWrite, {0x61, 2, 0x03}, "write 0x61 width 2 value 0x03 refused (EINVAL)"},
        {kWrite, {0x61, 4, 0x01000003}, "write 0x61 width 4 value 0x1000003 refused (EINVAL)"},
        {kWrite, {0x80, 1, 0}, "write 0x80 width 1 value 0x00 refused (ENXIO)"},
        {kRead, {0x42, 1, 0}, "read 0x42 width 1 value 0x00 refused (EINVAL)"},
        {0x800C736E, {0x61, 1, 0}, "request 0x800C736E refused (ENOTTY)"},
    };
    std::string log = "open O_WRONLY\n";
    for (auto test : cases) {
        const int result = ::ioctl(fd, test.code, test.request);
        log += std::string(test.log) + '\n';
        const std::string error = result != 0 ? ::strerrorname_np(errno) : "0xB6";
        EXPECT_NE(log.find(error, log.size() - 9), std::string::npos) << test.log;
    }
    EXPECT_EQ(::close(fd), 0);
    EXPECT_EQ(::close(fd), -1);
    EXPECT_EQ(PortLog(), log + "close\n");
}

TEST_F(BusIoDriver, ServesTheNodeAloneAndOnlyWhileItLives) {
    for (const auto entry : {&__open_2, &__open64_2}) {  // as builds with _FORTIFY_SOURCE call open
        const int node = entry(kNode, O_RDWR);
        const int other = entry("/dev/ptmx", O_RDWR);
        std::uint32_t request[3] = {0x61, 1, 0};
        int waiting = -1;
        EXPECT_EQ(::ioctl(node, kRead, request) + ::ioctl(other, FIONREAD, &waiting), 0);
        EXPECT_EQ(static_cast<int>(request[0]) + waiting, 0x30);
        EXPECT_EQ(::close(other) + ::close(node), 0);
    }
    driver_.reset();
    EXPECT_EQ(::open64(kNode, O_RDWR), -1);
}

TEST(SpeakerRecorder, WavFileHoldsTonesAndPausesAtEachMoment) {
    const std::string file = ::testing::TempDir() + "recorded.wav";
    CSpeakerRecorder recorder(std::make_unique<CWavWriter>(file));
    constexpr int kLate = 14 * 3600 * 1000;  // beyond 4 GiB the lines go on and the file stays as it was
    const struct {
        int ms;
        unsigned int divisor;
        const char* line;
        std::size_t samples;  // the file is whole while it grows
    } steps[] = {
        {0, 518, "", 0},
        {90, 518, "", 0},
        {150, 0, "2300 Hz for 150 ms", 6615},
        {400, 1193, "", 6615},
        {500, 2711, "1000 Hz for 100 ms", 22050},
        {1000, 0, "440 Hz for 500 ms", 44100},
        {kLate, 1193, "", 44100},
        {kLate + 5, 0, "1000 Hz for 5 ms (not in the WAV file any more: it is full or cannot be written)", 44100},
    };
    const auto begin = std::chrono::steady_clock::now();
    for (const auto& step : steps) {
        EXPECT_EQ(recorder.Sound(step.divisor, begin + std::chrono::milliseconds(step.ms)), step.line);
        EXPECT_EQ(Samples(file).size(), step.samples);
    }
    const auto samples = Samples(file);
    ASSERT_EQ(samples.size(), 44100U);
    EXPECT_NEAR(MeasuredHz(samples, 0, 6615), 2300, 23);
    EXPECT_TRUE(std::all_of(&samples[6615], &samples[17640], [](std::int16_t sample) { return sample == 0; }));
    EXPECT_NEAR(MeasuredHz(samples, 17640, 22050), 1000, 10);
    EXPECT_NEAR(MeasuredHz(samples, 22050, 44100), 440, 4.4);
    EXPECT_THROW(CWavWriter("/dev/full"), std::system_error);
    std::filesystem::remove(file);
}
