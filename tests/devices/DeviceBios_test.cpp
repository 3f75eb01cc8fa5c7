#include "devices/DeviceBios.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "support/TraceRows.h"

TEST(DeviceBios, MapsOnePieceAtATimeAndRefusesTheRest) {
    const std::string path = ::testing::TempDir() + "device_bios_memory";  // offsets are addresses
    const auto held = [&] {                                                // mappings and descriptors of that file
        std::ifstream maps("/proc/self/maps");
        std::string uses = "maps ";
        for (std::string line; std::getline(maps, line); uses += line.ends_with(path) ? "*" : "") {
        }
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            uses += std::filesystem::read_symlink(entry, gone).string() == path ? " fd" : "";
        }
        return uses;
    };
    for (unsigned int level = 1; level <= 5; ++level) {
        std::ofstream(path).seekp(0xF1234) << "firmware";
        const CTraceCapture trace(level);
        {
            CDeviceBios bios("/dev/null", path.c_str());
            auto* const written = static_cast<char*>(bios.MapPhysicalMemory(1, 0xF1234, 8, true));
            ASSERT_TRUE(written != nullptr && std::string_view(written, 8) == "firmware");
            *written = 'F';
            const auto* const read = static_cast<char*>(bios.MapPhysicalMemory(0, 0xF1230, 12, false));
            EXPECT_TRUE(read != nullptr && std::string_view(read + 4, 8) == "Firmware");
            EXPECT_EQ(held(), "maps * fd");
            for (const auto& [low, length] : {std::pair(0U, 8UL), {4096U, 0UL}, {4097U, 0xFFFFFFFFUL}, {8U, ~0UL}}) {
                EXPECT_EQ(bios.MapPhysicalMemory(0, low, length, false), nullptr);
                EXPECT_EQ(bios.LastError(), static_cast<unsigned int>(EINVAL));
                EXPECT_EQ(held(), "maps ");
            }
            EXPECT_TRUE(bios.MapPhysicalMemory(0, 0xF1000, 1, false) != nullptr && bios.UnmapPhysicalMemory());
            EXPECT_NE(bios.MapPhysicalMemory(0, 0xF1000, 1, false), nullptr);
        }
        EXPECT_EQ(held(), "maps ");
        CDeviceBios none("/dev/null", "/dev/none");
        CDeviceBios unconnected("/dev/none", path.c_str());
        EXPECT_TRUE(none.IsConnected() && !unconnected.IsConnected());
        EXPECT_EQ(none.MapPhysicalMemory(0, 4096, 8, false), nullptr);
        EXPECT_EQ(unconnected.MapPhysicalMemory(0, 4096, 8, false), nullptr);
        EXPECT_TRUE(none.LastError() == ENOENT && unconnected.LastError() == ENOTCONN);
        EXPECT_EQ(std::regex_replace(Rows(trace, ""), std::regex(::testing::TempDir()), ""),
                  RowsUpTo(EM_BIOS_ROWS, level));
    }
    std::filesystem::remove(path);
}
