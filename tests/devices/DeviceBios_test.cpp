#include "devices/DeviceBios.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "support/TraceCapture.h"

TEST(DeviceBios, MapsOnePieceAtATimeAndRefusesTheRest) {
    const std::string path = ::testing::TempDir() + "device_bios_memory";  // offsets are addresses
    std::ofstream(path).seekp(0xF1234) << "firmware";
    const CTraceCapture trace;
    CDeviceBios bios("/dev/null", path.c_str());
    auto* const written = static_cast<char*>(bios.MapPhysicalMemory(1, 0xF1234, 8, true));
    ASSERT_NE(written, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(written) % 4096, 0x234U);
    EXPECT_TRUE(trace.Has("\nCDeviceBios (Map) : Mapping physical memory 0x1000F1234 len 0x00008 to the user process"));
    *written = 'F';
    const auto* const read = static_cast<char*>(bios.MapPhysicalMemory(0, 0xF1230, 12, false));
    EXPECT_TRUE(read != nullptr && std::string_view(read + 4, 8) == "Firmware");
    EXPECT_TRUE(trace.Has("CDeviceBios (Unmap) : unmapped 0x23c bytes at 0xf1000 from 0x"));

    const std::pair<unsigned int, unsigned long> refused[] = {{0, 8}, {4096, 0}, {4097, 0xFFFFFFFF}, {4096, 1UL << 32}};
    for (const auto& [low, length] : refused) {
        EXPECT_EQ(bios.MapPhysicalMemory(0, low, length, false), nullptr);
    }
    EXPECT_EQ(CDeviceBios("/dev/null", "/dev/none").MapPhysicalMemory(0, 4096, 8, false), nullptr);
    EXPECT_EQ(CDeviceBios("/dev/none", path.c_str()).MapPhysicalMemory(0, 4096, 8, false), nullptr);
    EXPECT_EQ(trace.Count("ERROR"), 4);
    std::filesystem::remove(path);
}
