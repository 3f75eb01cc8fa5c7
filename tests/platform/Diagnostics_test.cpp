#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/Trace.h"
#include "support/TraceCapture.h"

namespace {

class TraceFiles : public ::testing::Test {
protected:
    void SetUp() override {
        std::string name = ::testing::TempDir() + "traceXXXXXX";
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        directory_ = name;
        ::unsetenv("LUME_LOG_DEBUG_LEVEL");
        ::unsetenv("LUME_LOG_DYNAMIC_UPDATE");
    }
    void TearDown() override {
        std::filesystem::remove_all(directory_);
        ::unsetenv("LUME_LOG_DEBUG_LEVEL");
        ::unsetenv("LUME_LOG_DYNAMIC_UPDATE");
        CDebugTraceConfig::tracingEnabled = false;
    }
    void Write(const std::string& name, const std::string& text) { std::ofstream(directory_ + "/" + name) << text; }
    /// File times have the kernel's tick; a rewrite must not look like the file that was read before.
    void Age(const std::string& name) {
        const timespec times[2] = {{1000, 0}, {1000, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, (directory_ + "/" + name).c_str(), times, 0), 0);
    }

    std::string directory_;
};

unsigned int LoadedLevel(const std::string& directory) {
    CDebugClient client("EM_ALERT");
    client.Initialise(directory.c_str());
    EXPECT_EQ(IsTracingEnabled(), client.DebugLevel() != 0);
    return client.DebugLevel();
}

}  // namespace

TEST_F(TraceFiles, EnvironmentDecidesUnlessTheDirectoryHoldsNoIniFile) {
    ::setenv("LUME_LOG_DEBUG_LEVEL", "3", 1);
    EXPECT_EQ(LoadedLevel(directory_), 0U);
    EXPECT_EQ(LoadedLevel(directory_ + "/missing"), 3U);
    Write("a.ini", "[EM_ALERT]\nFileDebugLevel = 0x5\n[EndOfFile]\n");
    EXPECT_EQ(LoadedLevel(directory_), 3U);
    ::setenv("LUME_LOG_DEBUG_LEVEL", "0", 1);
    EXPECT_EQ(LoadedLevel(directory_), 0U);
    ::unsetenv("LUME_LOG_DEBUG_LEVEL");
    EXPECT_EQ(LoadedLevel(directory_), 5U);
}

TEST_F(TraceFiles, FirstCompleteFileWithTheSectionSuppliesTheSettings) {
    Write("a.ini", "[EM_ALERT]\nFileDebugLevel=1\n");  // half written: no closing section
    Write("b.ini", "[OTHER]\nFileDebugLevel=2\n[endoffile]");
    Write("c.ini.bak", "[EM_ALERT]\nMemoryTraceFlags=7\nTraceFlags=8\nFileDebugLevel=010\n[ENDOFFILE]\nrest");
    Write("d.ini", "[EM_ALERT]\nFileDebugLevel=4\n[EndOfFile]\n");
    CDebugClient client("EM_ALERT");
    client.Initialise(directory_.c_str());
    EXPECT_EQ(client.DebugLevel(), 8U);
    EXPECT_EQ(client.TraceFlags(), 7U);  // found inside the longer key
}

TEST_F(TraceFiles, UnreadableFilesLeaveTracingOff) {
    ASSERT_EQ(::mkfifo((directory_ + "/a.ini").c_str(), 0600), 0);
    std::filesystem::create_directory(directory_ + "/b.ini");
    Write("c.ini", "[EM_ALERT");
    Write("d.ini", "");
    EXPECT_EQ(LoadedLevel(directory_), 0U);
}

TEST_F(TraceFiles, SettingsAreReadAgainWhileRunning) {
    Write("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=1\n[EndOfFile]\n");
    Write("module.ini", "[EM_ALERT]\nFileDebugLevel=2\n[EndOfFile]\n");
    Age("module.ini");
    CDebugClient client("EM_ALERT");
    client.Initialise(directory_.c_str());
    ASSERT_EQ(client.DebugLevel(), 2U);
    Write("module.ini", "[EM_ALERT]\nFileDebugLevel=4\n[EndOfFile]\n");
    for (int i = 0; i < 300 && client.DebugLevel() != 4; ++i) {
        ::usleep(10000);
        client.Print(9, "look again");
    }
    EXPECT_EQ(client.DebugLevel(), 4U);
}

TEST(Trace, FiltersByLevelAndEvaluatesNothingWhenOff) {
    const CTraceCapture trace(2);
    int evaluated = 0;
    EM_TRACE(2, "\nkept %d", ++evaluated);
    EM_TRACE(3, "\ndropped %d", ++evaluated);
    EXPECT_EQ(trace.All(), "\nkept 1");
    moduleObjects.debugClient.SetDebugLevel(0);
    EM_TRACE(1, "\noff %d", ++evaluated);
    EXPECT_EQ(evaluated, 2);
    EXPECT_EQ(trace.All(), "\nkept 1");
    moduleObjects.debugClient.PrintAlways("\nalways");
    EXPECT_EQ(trace.All(), "\nkept 1\nalways");
}
