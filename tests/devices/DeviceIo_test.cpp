#include "devices/DeviceIo.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <latch>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <thread>

#include <gtest/gtest.h>

#include "platform/UniqueFd.h"
#include "support/TraceCapture.h"

namespace {

constexpr std::uint32_t kReadWrite = kDeviceRead | kDeviceWrite;

struct Device : CDeviceIo {
    explicit Device(const char* path, bool perThread = false)
        : CDeviceIo(path, kReadWrite, 3, kOpenExisting, 0x80, perThread) {}
};

bool IsOpen(long long fd) {
    return ::fcntl(static_cast<int>(fd), F_GETFD) != -1;
}

}  // namespace

TEST(DeviceIo, OpensAsAccessAndDispositionSay) {
    const std::string file = ::testing::TempDir() + "device_io_file";
    const struct {
        std::uint32_t access, creation;
        bool exists;
        int error, flags, size;
    } cases[] = {
        {kReadWrite, kCreateNew, true, EEXIST, 0, 4},
        {kReadWrite, kCreateNew, false, 0, O_RDWR, 0},
        {kDeviceWrite, kCreateAlways, true, 0, O_WRONLY, 0},
        {kDeviceRead, kOpenExisting, true, 0, O_RDONLY | O_APPEND, 4},
        {kReadWrite, kOpenAlways, false, 0, O_RDWR | O_APPEND, 0},
        {kReadWrite, kTruncateExisting, true, 0, O_RDWR, 0},
        {kReadWrite, 6, false, ENOENT, 0, 0},
    };
    for (const auto& test : cases) {
        std::filesystem::remove(file);
        if (test.exists) {
            std::ofstream(file) << "text";
        }
        CDeviceIo device(file.c_str(), test.access, 3, test.creation, 0x80);
        ASSERT_EQ(device.Open(), test.error == 0) << test.creation;
        EXPECT_EQ(device.LastError(), static_cast<std::uint32_t>(test.error));
        struct stat status {};
        const int fd = static_cast<int>(device.getHandle());
        if (test.error == 0 && ::fstat(fd, &status) == 0) {
            EXPECT_EQ(::fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND), test.flags);
            EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
            EXPECT_EQ(status.st_size, test.size);
        }
    }
    std::filesystem::remove(file);
}

TEST(DeviceIo, RequestsPassBuffersBothWaysAndFailuresLeaveThemAlone) {
    const CTraceCapture trace(4);
    Device terminal("/dev/ptmx");
    Device other("/dev/null");
    winsize size{25, 80, 1, 2};
    termios all{};
    winsize part{1, 1, 1, 1};
    unsigned int returned = 7;
    for (const int error : {EINVAL, ENOTTY}) {
        EXPECT_FALSE(other.IoControl(TIOCGWINSZ, nullptr, 0, &part, sizeof part, &returned));
        EXPECT_EQ(other.LastError(), static_cast<std::uint32_t>(error));
        EXPECT_TRUE(other.Open() && terminal.Open());
    }
    EXPECT_EQ(returned, 7U);
    EXPECT_EQ(trace.Prints().back(), "ioctl-call failed: ERROR, errno = 25 (0x00000019)\n");
    EXPECT_TRUE(terminal.IoControl(TIOCSWINSZ, &size, sizeof size, nullptr, 0, &returned));
    EXPECT_TRUE(trace.Has(", *arg = 0x0002000100500019\n"));
    // Two bytes go in, so the buffer has to be as large as the output; then only the output's two bytes come out.
    EXPECT_TRUE(terminal.IoControl(TCGETS, &all, 2, &all, sizeof all, nullptr));
    EXPECT_TRUE(terminal.IoControl(TIOCGWINSZ, nullptr, sizeof part, &part, 2, nullptr));
    EXPECT_EQ(std::vector({returned, all.c_oflag & OPOST, 0U + part.ws_row, 0U + part.ws_col}),
              (std::vector{0U, 0U + OPOST, 25U, 1U}));
}

TEST(DeviceIoPerThread, DescriptorsOutliveTheObjectUntilTheirThreadsEnd) {
    const CTraceCapture trace;
    auto device = std::make_unique<Device>("/dev/null", true);
    std::vector<long long> handles(8);
    std::latch opened(8);
    std::latch destroyed(1);
    std::vector<std::jthread> threads;
    threads.reserve(handles.size());
    for (long long& handle : handles) {
        threads.emplace_back([&] {
            handle = device->getHandle();
            opened.count_down();
            destroyed.wait();
        });
    }
    opened.wait();
    const long long own = device->getHandle();
    device.reset();
    EXPECT_FALSE(IsOpen(own));
    EXPECT_TRUE(std::all_of(handles.begin(), handles.end(), IsOpen));
    destroyed.count_down();
    threads.clear();
    EXPECT_TRUE(std::none_of(handles.begin(), handles.end(), IsOpen));
    EXPECT_EQ(trace.Count("\nCDeviceIo::termHandling: Device closed, fd="), 8);
}

TEST(DeviceIoPerThread, NothingIsClosedTwice) {
    Device device("/dev/null", true);
    CUniqueFd other;
    std::thread([&] {
        const int second = static_cast<int>(device.getHandle());
        ::close(second);
        EXPECT_FALSE(device.Close());
        other.Reset(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(other.Get(), second);  // the number is someone else's by now
    }).join();
    EXPECT_TRUE(IsOpen(other.Get()));
}
