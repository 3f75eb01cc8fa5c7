// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <ctime>
#include <new>
#include <optional>
#include <regex>
#include <sys/un.h>

#include "Platform.h"

namespace {

std::time_t now = 5000;

}  // namespace

// What the program defines goes before the C library's: the clock and the memory of the code under test.
extern "C" std::time_t time(std::time_t* /*result*/) noexcept {
    return now;
}
/// Of a host that speaks Turkish, where "I" is not the capital of "i".
extern "C" int strcasecmp(const char* a, const char* b) noexcept {
    const auto isSame = [](char x, char y) { return x == y || ((x ^ y) == 0x20 && (x | 0x20) != 'i'); };
    return std::equal(a, a + std::strlen(a) + 1, b, isSame) ? 0 : 1;
}

namespace {

std::string LevelText(const std::string& level) {
    return "[EM_ALERT]\nFileDebugLevel=" + level + "\n[EndOfFile]";
}

class TraceFiles : public ::testing::Test {
protected:
    TraceFiles() { std::filesystem::create_directory(Path("")); }
    std::string Path(const std::string& name) const { return directory_ / ("t/" + name); }

    /// @param text  "-" removes the file
    void Write(const std::string& name, const std::string& text, std::time_t modified = 1000) const {
        if (text == "-") {
            std::filesystem::remove(Path(name));
            return;
        }
        WriteFile(Path(name), text);
        const timespec times[2] = {{modified, 7}, {modified, 7}};
        ASSERT_EQ(::utimensat(AT_FDCWD, Path(name).c_str(), times, 0), 0);
    }
    void Start(const std::string& level = "", const std::string& interval = "") {
        const std::pair<const char*, std::string> variables[] = {{"LUME_LOG_DEBUG_LEVEL", level},
                                                                 {"LUME_LOG_DYNAMIC_UPDATE", interval}};
        for (const auto& [name, value] : variables) {
            EXPECT_EQ(value.empty() ? ::unsetenv(name) : ::setenv(name, value.c_str(), 1), 0);
        }
        client_.emplace("EM_ALERT");
        client_->Initialise(Path("").c_str());
    }
    unsigned int LevelAfter(int seconds) {
        now += seconds;
        client_->Print(9, "look again");
        return client_->DebugLevel();
    }

    const CTempDirectory directory_;
    std::optional<CDebugClient> client_;
};

}  // namespace

TEST_F(TraceFiles, SupplyTheLevelUnlessTheEnvironmentDoes) {
    for (const auto& row : Cases("trace_files.cases", "level")) {
        row[1] == "-" ? std::filesystem::rename(Path(""), directory_ / "other")
                      : Write(row[1], std::string(std::stoul(row[5]), ' ') + row[2]);
        Start(row[3]);
        EXPECT_EQ(client_->DebugLevel(), Number(row[4])) << row[2];
        EXPECT_EQ(IsTracingEnabled(), row[4] != "0") << row[2];
        ::mkfifo(Path("b.ini").c_str(), 0600);  // for the rows behind the first
        ::mkdir(Path("c.ini").c_str(), 0700);
    }
}

TEST_F(TraceFiles, AreLookedAtAgainAfterTheInterval) {
    for (const auto& row : Cases("trace_files.cases", "interval")) {
        Write("global_trace.ini", row[2]);
        Write("m.ini", LevelText("1"));
        Start("", row[1]);
        Write("m.ini", LevelText("2"), 2000);
        int seconds = 0;
        while (LevelAfter(std::min(seconds, 1)) == 1 && seconds < 30) {
            ++seconds;
        }
        EXPECT_EQ(seconds, std::stoi(row[3])) << row[2];
    }
}

TEST_F(TraceFiles, AreReadAgainWhenTheyChangedAndMemoryIsThere) {
    Write("global_trace.ini", "[GlobalDebugSettings]\nDynamicUpdate=10\n[EndOfFile]");
    Write("m.ini", LevelText("2"));
    Start();
    for (const auto& row : Cases("trace_files.cases", "step")) {
        Write(row[1], row[2], std::stoi(row[3]));
        failing = row.back() == "short" ? FailingCall{"operator new", ENOMEM} : FailingCall{};
        const unsigned int level = LevelAfter(std::stoi(row[4]));
        failing = {};
        EXPECT_EQ(level, Number(row[5])) << row[2] << row[3];
        EXPECT_TRUE(IsTracingEnabled());
    }
    EXPECT_TRUE(client_->TraceFlags() == 0x12 && client_->MemoryTraces() == 3);
}

TEST_F(TraceFiles, AClosedSectionHoldsNoNumber) {
    Write("a.ini", LevelText("7"));
    CDebugTraceConfigFile file;
    unsigned int level = 0;
    EXPECT_TRUE(file.OpenSectionInIniFile("EM_ALERT", "a.ini", Path("").c_str()) &&
                file.GetNumberFromIniFile("FileDebugLevel", level) && level == 7);
    file.CloseSectionInIniFile();
    EXPECT_FALSE(file.GetNumberFromIniFile("FileDebugLevel", level));
    EXPECT_EQ(file.CheckForChange(), CDebugTraceConfigFile::Change::Newer);
    EXPECT_TRUE(file.OpenSectionInIniFile("EM_ALERT", "a.ini", Path("").c_str()));
    EXPECT_FALSE(file.OpenSectionInIniFile("EM_ALERT", "b.ini", Path("").c_str()) ||
                 file.GetNumberFromIniFile("FileDebugLevel", level));
}

TEST(Trace, FiltersByLevelAndEvaluatesNothingWhenOff) {
    const CTraceCapture trace(2);
    int evaluated = 0;
    EM_TRACE(2, "\nkept %d", ++evaluated);
    EM_TRACE(3, "\ndropped %d", ++evaluated);
    traceObjects.debugClient.SetDebugLevel(0xFFFFFFFF);
    EM_TRACE(0xFFFFFFFE, "\nall %d", ++evaluated);
    traceObjects.debugClient.SetDebugLevel(0);
    EM_TRACE(1, "\noff %d", ++evaluated);
    traceObjects.debugClient.Print(1, "\ndropped");
    traceObjects.debugClient.Print(0, "\nzero");
    traceObjects.debugClient.PrintAlways("\nalways");
    traceObjects.debugClient.PrintAlways(7, "\nalways %s", "seven");
    EXPECT_EQ(trace.All(), "\nkept 1\nall 3\nzero\nalways\nalways seven");
    EXPECT_TRUE(!traceObjects.debugClient.IsMaster() && CDebugClient("").IsMaster());
}

TEST(Trace, LooksForASinkUntilOneIsActive) {
    CTraceCapture trace;
    CDebugClient client("EM_ALERT");
    trace.SetActive(false);
    client.PrintAlways("to nobody,");
    trace.SetActive(true);
    client.PrintAlways("to the first,");
    trace.SetActive(false);
    client.PrintAlways("still");
    trace.SetActive(true);
    EXPECT_EQ(trace.All(), "to the first,still");
}

TEST(Trace, OfLevel0GoesToTheSystemLog) {
    InPrivateNamespace([wanted = ReadFile(EM_TEST_DATA "/system_log.records")] {
        ASSERT_EQ(::mount("none", "/dev", "tmpfs", 0, nullptr), 0);
        const CUniqueFd log(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0));
        const sockaddr_un address{AF_UNIX, "/dev/log"};
        ASSERT_EQ(::bind(log.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        const CTraceCapture trace(2);
        CDebugClient& client = traceObjects.debugClient;
        client.Print(0, "\n\n %s", "text");
        client.Print(1, "dropped");
        client.Print(0, "%s", "");
        client.PrintAlways(0, "not there");
        client.Print(0, "%01100d", 1);
        client.Print(0, "%ls", L"\xD800");
        for (const SysLogLevel level : {SysLogError, SysLogWarning, SysLogNotice, SysLogInfo, SysLogDebug}) {
            SysLogTraces::getConnection()->logMessage("50%%", level);
        }
        SysLogTraces::getConnection()->logMessage(nullptr, SysLogError);
        client.Print(0, nullptr);
        EXPECT_EQ(SysLogTraces::getConnection()->getProcName(), "platform_diagnostics_test"s);
        std::string records;
        char text[2048];
        for (ssize_t size = 0; (size = ::recv(log.Get(), text, sizeof text, 0)) > 0;) {
            records += std::string(text, static_cast<std::size_t>(size)).erase(5, 16) + "\n";  // the time
        }
        EXPECT_EQ(std::regex_replace(records, std::regex("\\[" + std::to_string(::getpid()) + "\\]"), "[#]"), wanted);
    });
}
