// SPDX-License-Identifier: Apache-2.0
#include "devices/DeviceIo.h"

#include <algorithm>
#include <cstdarg>
#include <fcntl.h>
#include <latch>
#include <linux/nsfs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <thread>

#include "devices/DeviceBeeper.h"
#include "devices/DeviceBios.h"
#include "devices/DeviceIoExtensionData.h"
#include "platform/diagnostics/Trace.h"
#include "platform/files/UniqueFd.h"
#include "support/Cases.h"
#include "support/FailingCall.h"
#include "support/PrivateNamespace.h"
#include "support/TraceCapture.h"

namespace {

constexpr const char* kAccess[] = {"r", "w", "rw"};

bool isBeeping = false;
int requests = 0;        // of one tone, counted
int failingRequest = 0;  // its number
int requestError = EIO;

struct Device : CDeviceIo {
    explicit Device(const char* path, bool perThread = false, bool keepOpen = false)
        : CDeviceIo(path, kDeviceRead | kDeviceWrite, 3, kOpenExisting, 0x80, perThread, keepOpen) {}
};

bool IsOpen(long long fd) {
    return ::fcntl(static_cast<int>(fd), F_GETFD) != -1;
}

/// The number of the thread key that would be made next: as before when all keys were given back.
pthread_key_t NextKey() {
    pthread_key_t key = 0;
    EXPECT_EQ(::pthread_key_create(&key, nullptr) + ::pthread_key_delete(key), 0);
    return key;
}

/// Another thread's, which is given back between the two keys of a device.
pthread_key_t lowKey = 0;
bool isLowKeyHeld = false;
int madeKeys = 0;
[[gnu::no_sanitize_thread]] pthread_key_t* MadeKey(pthread_key_t* key) {
    if (++madeKeys == 2 && isLowKeyHeld) {
        isLowKeyHeld = ::pthread_key_delete(lowKey) != 0;
    }
    return key;
}

}  // namespace

// This program's own: nobody sleeps, and what a tone asks for fails when told to.
extern "C" int ioctl(int fd, unsigned long code, ...) noexcept {
    static const auto real = reinterpret_cast<decltype(&ioctl)>(::dlsym(RTLD_NEXT, "ioctl"));
    va_list arguments;
    va_start(arguments, code);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    errno = requestError;
    return !isBeeping ? real(fd, code, argument) : requests++ == failingRequest ? -1 : 0;
}
extern "C" int usleep(unsigned int microseconds) {
    EM_TRACE(1, "usleep %u", microseconds);
    return 0;
}

EM_CAN_FAIL(pthread_setspecific, noexcept, (pthread_key_t key, const void* value), key, value)
EM_CAN_FAIL(pthread_key_create, noexcept, (pthread_key_t * key, void (*atEnd)(void*)), MadeKey(key), atEnd)

TEST(DeviceBeeper, TracesAFailureAndSwitchesTheToneOffAllTheSame) {
    InPrivateNamespace([] {
        const auto rows = Cases("devices.cases", "failure");
        ASSERT_EQ(::mount("none", "/dev", "tmpfs", 0, nullptr), 0);
        Shell("mkdir /dev/pci && touch /dev/pci/smbus");
        isBeeping = true;
        for (const auto& row : rows) {
            const auto beep = [&] {
                requests = 0;
                failingRequest = std::stoi(row[1]);
                EXPECT_TRUE(CDeviceBeeper::Beep(1000, 7) && requests == std::stoi(row[2]));
            };
            EXPECT_EQ(TracesByLevel(beep, "CDeviceBeeper|usleep"), row[3]);
        }
    });
}

TEST(DeviceIo, OpensAsAccessAndDispositionSay) {
    const CTempDirectory directory;
    const std::string file = directory / "file";
    const mode_t mask = ::umask(0);
    for (const auto& row : Cases("devices.cases", "opening")) {
        std::filesystem::remove(file);
        row[3] == "text" ? WriteFile(file, "text") : void();
        CDeviceIo device(file.c_str(), Number(row[1], 16), 3, Number(row[2], 16), 0x80);
        std::string opened = ::strerrorname_np(device.Open() ? 0 : static_cast<int>(device.LastError()));
        struct stat status {};
        if (const int fd = static_cast<int>(device.getHandle()); ::fstat(fd, &status) == 0) {
            const int flags = ::fcntl(fd, F_GETFL);
            opened = kAccess[flags & O_ACCMODE];
            opened += ((flags & O_APPEND) != 0 ? " append " : " ") + std::to_string(status.st_size);
            opened += row[3] == "none" ? " " + std::to_string(status.st_mode & 07777) : "";
            EXPECT_TRUE(::fcntl(fd, F_GETFD) == FD_CLOEXEC && device.LastError() == 0);
        }
        EXPECT_EQ(opened, row[4]) << row[1] << ' ' << row[2];
    }
    ::umask(mask);
}

TEST(DeviceIo, TellsAFailedCloseOnlyByItsLastErrorAndMayLeaveOpen) {
    Device device("/dev/null");
    for (const int error : {EBADF, 0}) {
        EXPECT_TRUE(device.Open() && device.Open() && device.LastError() == 0);
        error != 0 ? ::close(static_cast<int>(device.getHandle())) : 0;
        EXPECT_TRUE(device.Close() && device.getHandle() == -1 && device.Close());
        EXPECT_EQ(device.LastError(), static_cast<std::uint32_t>(error));
    }
    for (const bool keep : {true, false}) {
        auto kept = std::make_unique<Device>("/dev/null", false, keep);
        const long long handle = kept->Open() ? kept->getHandle() : -1;
        kept.reset();
        EXPECT_EQ(CUniqueFd(static_cast<int>(keep ? handle : -1)).Get() == handle, IsOpen(handle)) << keep;
    }
    EXPECT_EQ(Device(nullptr, true).getHandle() + Device("", true).getHandle(), -2);
    EXPECT_EQ(Device("/dev/null", true).LastError(), 0U);
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
    const CUniqueFd space(::open("/proc/self/ns/uts", O_RDONLY | O_CLOEXEC));
    auto* const handle = reinterpret_cast<void*>(static_cast<std::intptr_t>(space.Get()));
    EXPECT_TRUE(CDeviceIo::DeviceIoControl(handle, NS_GET_NSTYPE, nullptr, 0, nullptr, 0, &returned, nullptr));
    EXPECT_EQ(returned, static_cast<unsigned int>(CLONE_NEWUTS));  // what the driver returned
    EXPECT_FALSE(other.IoControl(TIOCGWINSZ, nullptr, 0, nullptr, 0, nullptr));
    EXPECT_TRUE(other.Close() && other.LastError() == 0);
    isBeeping = true;
    failingRequest = requests;
    requestError = 0;  // a driver that gives no reason
    EXPECT_FALSE(terminal.IoControl(TIOCGWINSZ, nullptr, 0, &part, sizeof part, &returned) || part.ws_row != 25);
    EXPECT_TRUE(trace.Prints().back() == "ioctl-call failed: ERROR, errno = 0 (0x00000000)\n" && returned != 0);
    isBeeping = false;
    Device missing("/dev/none");
    EXPECT_FALSE(missing.Open() || missing.IoControl(TCGETS, nullptr, 0, nullptr, 0, nullptr));
    EXPECT_EQ(missing.LastError(), static_cast<std::uint32_t>(ENOENT));  // which tells more than EINVAL
}

TEST(DeviceIoPerThread, DescriptorsOutliveTheObjectUntilTheirThreadsEnd) {
    const pthread_key_t key = NextKey();
    for (unsigned int level = 4; level <= 5; ++level) {
        const CTraceCapture trace(level);
        auto device = std::make_unique<Device>("/dev/null", true);
        std::vector<long long> handles(8);
        std::latch opened(8);
        std::latch destroyed(1);
        std::vector<std::jthread> threads;
        threads.reserve(handles.size());
        for (long long& handle : handles) {
            threads.emplace_back([&] {
                EXPECT_TRUE(device->Open());
                device->Close();
                handle = device->getHandle();
                opened.count_down();
                destroyed.wait();
            });
        }
        opened.wait();
        const long long own = device->getHandle();
        EXPECT_EQ(device->getHandle(), own);
        device.reset();
        EXPECT_FALSE(IsOpen(own));
        EXPECT_TRUE(std::ranges::all_of(handles, IsOpen));
        EXPECT_NE(NextKey(), key);
        destroyed.count_down();
        threads.clear();
        EXPECT_TRUE(std::ranges::none_of(handles, IsOpen));
        EXPECT_EQ(trace.Count("\nCDeviceIo::getHandle: Device /dev/null  opened, fd="), level == 5 ? 17 : 0);
        EXPECT_EQ(trace.Count("\nCDeviceIo::Close (ts): Device /dev/null closed, fd="), level == 5 ? 9 : 0);
        EXPECT_EQ(trace.Count("\nCDeviceIo::termHandling: Device closed, fd="), level == 5 ? 8 : 0);
        EXPECT_EQ(NextKey(), key);
        EXPECT_FALSE(Device("/dev/none", true).Open());
        EXPECT_EQ(trace.Has("\nCDeviceIo::getHandle: Device /dev/none NOT opened, fd=-1"), level == 5);
    }
}

TEST(DeviceIoPerThread, NothingIsClosedTwice) {
    Device device("/dev/null", true);
    CUniqueFd other;
    long long again = -1;
    std::thread([&] {
        const int second = static_cast<int>(device.getHandle());
        ::close(second);
        EXPECT_FALSE(device.Close());
        EXPECT_EQ(device.LastError(), static_cast<std::uint32_t>(EBADF));
        other.Reset(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(other.Get(), second);  // the number is someone else's by now
        again = device.getHandle();
    }).join();
    EXPECT_TRUE(again > other.Get() && !IsOpen(again) && IsOpen(other.Get()) &&
                CDeviceIo::termHandling(reinterpret_cast<void*>(-1L)));
}

TEST(DeviceIoPerThread, IsClosedAtAThreadsEndWhateverKeysAreFree) {
    const pthread_key_t key = NextKey();
    long long handle = -1;
    for (const bool isHeld : {false, true}) {
        isLowKeyHeld = isHeld && ::pthread_key_create(&lowKey, nullptr) == 0;
        madeKeys = 0;
        Device device("/dev/null", true);
        EXPECT_TRUE(!isLowKeyHeld && madeKeys == (isHeld ? 3 : 2));
        std::thread([&] { handle = device.getHandle(); }).join();
        EXPECT_TRUE(handle > 0 && !IsOpen(handle));
    }
    for (const int after : {0, 1}) {  // the first key is missing, the second
        failing = {"pthread_key_create", EAGAIN, 1, after};
        Device none("/dev/null", true);
        EXPECT_FALSE(none.Open() || none.IoControl(TCGETS, nullptr, 0, nullptr, 0, nullptr));
        EXPECT_TRUE(none.LastError() == EAGAIN && none.getHandle() == -1 && none.Close());
    }
    const CTraceCapture trace(5);
    Device full("/dev/null", true);
    failing = {"pthread_setspecific", ENOMEM, 1};
    EXPECT_TRUE(!full.Open() && full.LastError() == ENOMEM && !IsOpen(handle));
    EXPECT_EQ(trace.Prints(),
              std::vector{"\nCDeviceIo::getHandle: Device /dev/null closed, fd=" + std::to_string(handle)});
    EXPECT_TRUE(full.Close() && NextKey() == key + 2);
}

TEST(DeviceIoPerThread, NothingIsAdoptedAfterTheRelease) {
    const pthread_key_t key = NextKey();
    std::thread([&] {
        CDeviceIoExtensionData* const data = CDeviceIoExtensionData::Create(&CDeviceIo::termHandling);
        failing = {"pthread_setspecific", ENOMEM, 1, 1};  // in the middle of it
        EXPECT_TRUE(data->Adopt(0) == ENOMEM && data->Descriptor() == -1);
        EXPECT_EQ(data->Adopt(::open("/dev/null", O_RDONLY | O_CLOEXEC)), 0);
        EXPECT_TRUE(CUniqueFd(data->Descriptor()));
        data->Release();
        EXPECT_EQ(data->Adopt(0), ECANCELED);
        EXPECT_EQ(data->Descriptor(), -1);
    }).join();
    EXPECT_EQ(NextKey(), key);
}

TEST(DeviceBios, MapsOnePieceAtATimeAndRefusesTheRest) {
    const CTempDirectory directory;
    const std::string path = directory / "device_bios_memory";  // offsets are addresses
    const auto expectHeld = [&path](const char* wanted) {       // mappings, descriptors, inherited ones of that file
        Shell("p='" + path + "'; held=$(grep -c \"$p\" /proc/$PPID/maps; " +
              "ls -l /proc/$PPID/fd | grep -c \"$p\"; ls -l /proc/$$/fd | grep -c \"$p\"); test \"$(echo $held)\" = '" +
              wanted + "'");
    };
    const auto expectAccess = [&path](int wanted) {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (std::filesystem::read_symlink(entry, gone) == path) {
                EXPECT_EQ(::fcntl(std::stoi(entry.path().filename()), F_GETFL) & O_ACCMODE, wanted);
            }
        }
    };
    const auto scenario = [&] {
        std::ofstream(path).seekp(0xF1234) << "firmware";
        {
            CDeviceBios bios("/dev/null", path.c_str());
            auto* const written = static_cast<char*>(bios.MapPhysicalMemory(1, 0xF1234, 8, true));
            ASSERT_TRUE(written != nullptr && std::string_view(written, 8) == "firmware");
            expectAccess(O_RDWR);
            *written = 'F';
            const auto* const read = static_cast<char*>(bios.MapPhysicalMemory(0, 0xF1230, 12, false));
            EXPECT_TRUE(read != nullptr && std::string_view(read + 4, 8) == "Firmware");
            expectHeld("1 1 0");
            expectAccess(O_RDONLY);
            for (const auto& [low, length] : {std::pair(0U, 8UL), {4096U, 0UL}, {4097U, 0xFFFFFFFFUL}, {8U, ~0UL}}) {
                EXPECT_EQ(bios.MapPhysicalMemory(0, low, length, false), nullptr);
                EXPECT_EQ(bios.LastError(), static_cast<unsigned int>(EINVAL));
                expectHeld("0 0 0");
            }
            EXPECT_TRUE(bios.MapPhysicalMemory(0, 0xF1000, 1, false) != nullptr && bios.UnmapPhysicalMemory());
            EXPECT_NE(bios.MapPhysicalMemory(0, 0xF1001, 2, false), nullptr);
        }
        expectHeld("0 0 0");
        CDeviceBios none("/dev/null", "/dev/none");
        CDeviceBios unconnected("/dev/none", path.c_str());
        EXPECT_TRUE(none.IsConnected() && !unconnected.IsConnected());
        EXPECT_EQ(none.MapPhysicalMemory(0, 4096, 8, false), nullptr);
        EXPECT_EQ(unconnected.MapPhysicalMemory(0, 4096, 8, false), nullptr);
        EXPECT_TRUE(none.LastError() == ENOENT && unconnected.LastError() == ENOTCONN);
        CDeviceBios folder("/dev/null", "/dev");
        EXPECT_EQ(folder.MapPhysicalMemory(0, 4096, 8, false), nullptr);
        EXPECT_EQ(folder.LastError(), static_cast<unsigned int>(ENODEV));
    };
    EXPECT_EQ(TracesByLevel(scenario), ReadFile(EM_TEST_DATA "/bios.trace"));
}
