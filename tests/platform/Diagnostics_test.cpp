#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <gtest/gtest.h>

#include "SecondSink.h"
#include "platform/Trace.h"
#include "platform/UniqueFd.h"
#include "support/PrivateNamespace.h"
#include "support/TraceCapture.h"
#include "xml/TempDirectory.h"

using namespace std::string_literals;

namespace {

std::time_t now = 5000;
bool isMemoryShort = false;

}  // namespace

// What the program defines goes before the C library's: the clock and the memory of the code under test.
extern "C" std::time_t time(std::time_t* /*result*/) noexcept {
    return now;
}
void* operator new(std::size_t size) {
    void* const memory = isMemoryShort ? nullptr : std::malloc(size);
    return memory == nullptr ? throw std::bad_alloc() : memory;
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace {

std::string Section(const std::string& lines, const std::string& name = "EM_ALERT") {
    return "[" + name + "]\n" + lines + "\n[EndOfFile]\n";
}

void SetVariable(const char* name, const char* value) {
    EXPECT_EQ(value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1), 0);
}

class TraceFiles : public ::testing::Test {
protected:
    TraceFiles() { std::filesystem::create_directory(Path("")); }
    ~TraceFiles() override {
        SetVariable("LUME_LOG_DEBUG_LEVEL", nullptr);
        SetVariable("LUME_LOG_DYNAMIC_UPDATE", nullptr);
    }
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
    void Start() {
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
    const auto expectLevel = [this](const char* variable, unsigned int level, const std::string& what) {
        SetVariable("LUME_LOG_DEBUG_LEVEL", variable);
        Start();
        EXPECT_EQ(client_->DebugLevel(), level) << what;
        EXPECT_EQ(IsTracingEnabled(), level != 0) << what;
    };
    Write("a.txt", Section("FileDebugLevel=1"));
    expectLevel("3", 0, "no .ini file");
    Write("a.ini", "[EM_ALERT]\nFileDebugLevel=1\n");
    expectLevel("010", 10, "decimal");
    expectLevel("0x3", 0, "decimal");
    expectLevel(nullptr, 0, "half written");
    ASSERT_EQ(::mkfifo(Path("b.ini").c_str(), 0600), 0);
    std::filesystem::create_directory(Path("c.ini"));
    Write("d.ini", Section("FileDebugLevel=2", "OTHER"));
    Write("f.ini", Section("FileDebugLevel=4"));
    Write("g.ini", Section("FileDebugLevel=5"));
    const std::pair<std::string, unsigned int> files[] = {
        {Section("FileDebugLevel = 0x5\nFileDebugLevel=6"), 5},
        {Section("FileDebugLevel=\t012 \r\n"), 10},
        {Section("FileDebugLevel is\n= 3"), 3},
        {Section("FileDebugLevel=high\n7"), 0},
        {Section("FileDebugLevel\n"), 0},
        {Section("FileDebugLevel=0xFFFFFFFF"), 0},
        {Section("x=1"), 0},
        {"FileDebugLevel=1\n[EM_ALERT][OTHER]\nFileDebugLevel=2\n[EM_ALERT]\nFileDebugLevel=3\n[endOFfile]rest", 0},
        {"[X]\nFileDebugLevel=1\n[EM_ALERT]FileDebugLevel=2\n[EndOfFile]\n", 2},
        {"[EM_ALERT]\nFileDebugLevel=1\n[EndOfFile]\n[More]\n", 4},
        {"[EM_ALERT]\nFileDebugLevel=1\n[EndOfFile", 4},
        {"[EM_ALERT]\nFileDebugLevel=1\nEndOfFile\n", 4},
        {"", 4},
        {std::string((1 << 20) - 37, ' ') + "[EM_ALERT]FileDebugLevel=1[EndOfFile]", 1},
        {std::string((1 << 20) - 36, ' ') + "[EM_ALERT]FileDebugLevel=1[EndOfFile]", 4},
    };
    for (const auto& [text, level] : files) {
        Write("e.ini.bak", text);
        expectLevel(nullptr, level, text.substr(0, 200));
    }
    expectLevel("0", 0, "the variable decides");
    std::filesystem::rename(Path(""), directory_ / "other");
    expectLevel(nullptr, 0, "no directory");
    expectLevel("3", 3, "no directory");
}

TEST_F(TraceFiles, AreLookedAtAgainAfterTheInterval) {
    const std::tuple<const char*, const char*, int> cases[] = {{nullptr, "DynamicUpdate=3", 3},
                                                               {"5", "DynamicUpdate = 3", 5},
                                                               {"010", "", 10},
                                                               {"0x7", "DynamicUpdate=3", 0},
                                                               {nullptr, "", 0},
                                                               {nullptr, "DynamicUpdate=0xFFFFFFFF", 0}};
    for (const auto& [variable, line, interval] : cases) {
        Write("global_trace.ini", Section(line, "GlobalDebugSettings"));
        Write("m.ini", Section("FileDebugLevel=1"));
        SetVariable("LUME_LOG_DYNAMIC_UPDATE", variable);
        Start();
        Write("m.ini", Section("FileDebugLevel=2"), 2000);
        int seconds = 0;
        while (LevelAfter(1) == 1 && ++seconds < 30) {
        }
        EXPECT_EQ(seconds, interval == 0 ? 30 : interval - 1) << line;
    }
}

TEST_F(TraceFiles, AreReadAgainWhenTheyChanged) {
    const auto global = [](const char* seconds) { return Section("DynamicUpdate="s + seconds, "GlobalDebugSettings"); };
    Write("global_trace.ini", global("10"), 1000);
    Write("m.ini", Section("FileDebugLevel=2"), 1000);
    Start();
    const struct {
        const char* file;
        std::string text;
        int modified;
        int seconds;
        unsigned int level;
    } steps[] = {
        {"m.ini", Section("FileDebugLevel=4"), 2000, 9, 2},
        {"m.ini", Section("FileDebugLevel=4"), 2000, 1, 4},
        {"m.ini", Section("FileDebugLevel=3"), 1500, 10, 3},
        {"m.ini", Section("FileDebugLevel=05"), 1500, 10, 5},
        {"m.ini", Section("FileDebugLevel=06"), 1500, 10, 5},  // nothing tells that it changed
        {"m.ini", "[EM_ALERT]\nFileDebugLevel=6\n[EndOfFil ]\n", 1600, 10, 5},
        {"m.ini", "[EM_ALERT]\nFileDebugLevel=6\n[EndOfFile]\n", 1600, 10, 6},
        {"m.ini", "-", 0, 10, 6},
        {"m.ini", Section("FileDebugLevel=7"), 1600, 10, 7},
        {"l.ini", Section("FileDebugLevel=1"), 3000, 10, 7},  // not the file of the start
        {"m.ini", Section("FileDebugLevel=8"), 3000, -1, 8},  // the clock was set back
        {"m.ini", Section("TraceFlags=1"), 3001, 10, 8},
        {"m.ini", Section("FileDebugLevel=0\nTraceFlags=0x12\nMemoryTracesFlag=3"), 3002, 10, 0},
        {"m.ini", Section("FileDebugLevel=1"), 3003, 10, 1},
        {"global_trace.ini", global("20"), 2000, 10, 1},
        {"m.ini", Section("FileDebugLevel=2"), 3004, 19, 1},
        {"global_trace.ini", global("1"), 1999, 1, 2},  // older: not taken over
        {"m.ini", Section("FileDebugLevel=3"), 3005, 19, 2},
        {"global_trace.ini", "-", 0, 1, 3},
        {"global_trace.ini", global("30"), 1000, 20, 3},
        {"m.ini", Section("FileDebugLevel=4"), 3006, 29, 3},
        {"global_trace.ini", Section("x=1", "GlobalDebugSettings"), 3000, 1, 4},
        {"global_trace.ini", global("0"), 3001, 30, 4},
        {"m.ini", Section("FileDebugLevel=5"), 3007, 999, 4},
    };
    for (const auto& step : steps) {
        Write(step.file, step.text, step.modified);
        EXPECT_EQ(LevelAfter(step.seconds), step.level) << &step - steps;
        EXPECT_TRUE(IsTracingEnabled());
    }
    EXPECT_EQ(client_->TraceFlags(), 0x12U);
    EXPECT_EQ(client_->MemoryTraces(), 3U);
}

TEST_F(TraceFiles, AreReadAgainAfterMemoryWasShort) {
    SetVariable("LUME_LOG_DYNAMIC_UPDATE", "1");
    Write("a.ini", Section("FileDebugLevel=2"));
    Start();
    Write("a.ini", Section("FileDebugLevel=4"), 2000);
    isMemoryShort = true;
    EXPECT_EQ(LevelAfter(1), 2U);
    isMemoryShort = false;
    EXPECT_EQ(LevelAfter(1), 4U);
}

TEST(Trace, FiltersByLevelAndEvaluatesNothingWhenOff) {
    const CTraceCapture trace(2);
    int evaluated = 0;
    EM_TRACE(2, "\nkept %d", ++evaluated);
    EM_TRACE(3, "\ndropped %d", ++evaluated);
    moduleObjects.debugClient.SetDebugLevel(0xFFFFFFFF);
    EM_TRACE(0xFFFFFFFE, "\nall %d", ++evaluated);
    moduleObjects.debugClient.SetDebugLevel(0);
    EM_TRACE(1, "\noff %d", ++evaluated);
    moduleObjects.debugClient.Print(1, "\ndropped");
    moduleObjects.debugClient.Print(0, "\nzero");
    moduleObjects.debugClient.PrintAlways("\nalways");
    moduleObjects.debugClient.PrintAlways(7, "\nalways %s", "seven");
    EXPECT_EQ(trace.All(), "\nkept 1\nall 3\nzero\nalways\nalways seven");
    EXPECT_TRUE(!moduleObjects.debugClient.IsMaster() && CDebugClient("").IsMaster());
}

TEST(Trace, GoesToTheFirstSinkThatIsActiveWhenFirstNeeded) {
    CTraceCapture trace;
    CDebugClient client("EM_ALERT");
    trace.SetActive(false);
    client.PrintAlways("to nobody,");
    trace.SetActive(true);
    client.PrintAlways("to the first,");
    trace.SetActive(false);
    client.PrintAlways("still");
    TheSecondSink().isActive = true;
    CDebugClient other("EM_ALERT");
    other.PrintAlways("to the second,");
    trace.SetActive(true);
    other.PrintAlways("still");
    EXPECT_EQ(trace.All(), "to the first,still");
    EXPECT_EQ(TheSecondSink().prints, "to the second,still");
}

TEST(Trace, OfLevel0GoesToTheSystemLog) {
    InPrivateNamespace([] {
        ASSERT_EQ(::mount("none", "/dev", "tmpfs", 0, nullptr), 0);
        const CUniqueFd log(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0));
        const sockaddr_un address{AF_UNIX, "/dev/log"};
        ASSERT_EQ(::bind(log.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        CDebugClient& client = moduleObjects.debugClient;
        client.Print(0, "\n\n %s", "text");
        client.Print(1, "dropped");
        client.PrintAlways(0, "not there");
        client.Print(0, "%01100d", 1);
        client.Print(0, "%ls", L"\xD800");
        SysLogTraces::getConnection()->logMessage("50%%", SysLogError);
        SysLogTraces::getConnection()->logMessage(nullptr, SysLogError);
        client.Print(0, nullptr);
        const std::string name = SysLogTraces::getConnection()->getProcName();
        EXPECT_EQ(name, "platform_diagnostics_test");
        const std::string sender = name + "[" + std::to_string(::getpid()) + "]: ";
        for (const std::string& expected :
             {"<142>" + sender + " text", "<142>" + sender + std::string(1023, '0'),
              "<142>" + sender + "ERROR: cann't format message", "<139>" + sender + "50%", ""s}) {
            char text[2048];
            const ssize_t size = ::recv(log.Get(), text, sizeof text, 0);
            std::string record(text, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
            EXPECT_EQ(record.size() < 21 ? record : record.erase(5, 16), expected);  // the time
        }
    });
}
