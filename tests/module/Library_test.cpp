#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "LoadedLibrary.h"

namespace {

bool IsMapped() {
    std::ifstream maps("/proc/self/maps");
    return std::string(std::istreambuf_iterator<char>(maps), {}).find("libem_alert.so") != std::string::npos;
}

}  // namespace

TEST(Library, ExportsTheFourFunctionsAndNothingElse) {
    EXPECT_EQ(
        std::system("nm -D --defined-only --format=just-symbols " EM_LIBRARY " | diff - " EM_SCENARIOS "/exports"), 0);
}

TEST(Library, CreatesOneModuleAtATimeAndUnloadsForGood) {
    for (int round = 0; round < 3; ++round) {
        {
            const CLoadedLibrary library;
            EXPECT_FALSE(library.remove());
            CIExtensionModule* module = nullptr;
            CIExtensionModule* second = nullptr;
            ASSERT_TRUE(library.create(&module, nullptr));
            ASSERT_TRUE(library.create(&second, nullptr));
            EXPECT_EQ(module, second);
            EXPECT_STREQ(module->GetName(), "EM_ALERT");
            EXPECT_STREQ(library.name(), "EM_ALERT");
            EXPECT_TRUE(module->DetectHardware());
            EXPECT_TRUE(library.remove());
            EXPECT_FALSE(library.remove());
            EXPECT_EQ(library.setupAction(1), 1);
        }
        EXPECT_FALSE(IsMapped());
    }
}

TEST(Library, FillsThePropertiesByteForByte) {
    const CLoadedLibrary library;
    CIExtensionModule* module = nullptr;
    ASSERT_TRUE(library.create(&module, nullptr));
    _ExtensionModuleProperties properties;
    std::memset(&properties, 0xA4, sizeof properties);
    properties.size = 245;
    std::string expected(reinterpret_cast<const char*>(&properties), sizeof properties);
    EXPECT_FALSE(module->GetProperties(properties));
    EXPECT_EQ(std::memcmp(&properties, expected.data(), sizeof properties), 0);

    properties.size = 246;
    EXPECT_TRUE(module->GetProperties(properties));
    expected.replace(0, 4, std::string("\xF6\0\0\0", 4));
    expected[8] = expected[21] = '\xA7';
    expected.replace(26, 4, std::string("\x64\0\0\0", 4));
    expected.replace(42, 4, std::string("\x02\0\0\0", 4));
    expected.replace(46, 16, std::string("EM_ALERT").append(8, '\0'));
    expected.replace(62, 84, 84, '\0');
    expected.replace(146, 96, std::string("Alert handling module").append(75, '\0'));
    expected.replace(242, 4, 4, '\0');
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&properties), sizeof properties), expected);
    EXPECT_TRUE(library.remove());
}

TEST(Library, AModuleThatNobodyStartedOrStoppedIsDeleted) {
    const CLoadedLibrary library;
    CIExtensionModule* module = nullptr;
    ASSERT_TRUE(library.create(&module, nullptr));
    module->OnSwitchStarted(nullptr);  // without a switch: every request fails, the worker runs all the same
    EXPECT_TRUE(library.remove());
}
