#include "platform/IniFile.h"

#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "support/PrivateNamespace.h"
#include "support/TraceCapture.h"
#include "xml/TempDirectory.h"

using namespace std::string_literals;

namespace {

class IniFile : public ::testing::Test {
protected:
    std::string Content() const { return ReadFile(path_); }
    std::string Read(const char* section, const char* key, unsigned int size) const {
        std::string buffer(size + 1, '#');
        const auto stored =
            CIniFile::GetPrivateProfileString(section, key, "default", buffer.data(), size, path_.c_str());
        EXPECT_EQ(buffer.back(), '#');
        return std::to_string(stored) + ":" + buffer.substr(0, size);
    }

    const CTempDirectory directory_;
    const std::string path_ = directory_ / "test.ini";
    CIniFile ini_{path_.c_str()};
};

const std::string kLong(1000, 'x');
const std::string kPiece(1023, 'y');

}  // namespace

TEST_F(IniFile, ReadsValues) {
    WriteAll(path_,
             "\xEF\xBB\xBF[first]\r\n; note\r\n\r\n  a  =\t b c \r\nq=a;b\r\nempty=\r\nnokey\r\n=v\r\n[ Log ]\n"
             "a=blanks\n[open\n[Log] ; x\nA=upper\na=lower\na=again\nzero=1\0002\nx=[y]\nlong="s +
                 kLong + kLong + "\n[Log]\nlate=1\n[end]\nlast=no newline"s);
    const char* const cases[][3] = {
        // clang-format off
        {"first", "a", "b c"}, {"first", "q", "a"}, {"first", "empty", ""}, {"first", "nokey", "default"},
        {"Log", "a", "lower"}, {"Log", "zero", "1"}, {"Log", "x", "[y]"}, {"Log", "late", "default"},
        {" Log ", "a", "blanks"}, {"log", "a", "default"}, {"end", "last", "no newline"}};  // clang-format on
    std::string value;
    for (const auto& [section, key, expected] : cases) {
        EXPECT_TRUE(ini_.GetString(value, section, key, "default") == !value.empty() && value == expected) << value;
    }
    EXPECT_TRUE(ini_.GetString(value, "Log", "long", "") && value == kLong + std::string(19, 'x'));
}

TEST_F(IniFile, CutsWhatDoesNotFit) {
    WriteAll(path_, "[one]\nk=value\nkey2=\n=\n[]\n[three]\n");
    EXPECT_EQ(Read("one", "k", 6) + Read("one", "k", 5) + Read("one", "k", 1), "5:value\0004:valu\0000:\0"s);
    EXPECT_EQ(Read("one", "none", 5), "4:defa\0"s);
    EXPECT_EQ(Read("one", nullptr, 8) + Read("one", nullptr, 7), "7:k\0key2\0\0005:k\0key\0\0"s);
    EXPECT_EQ(Read(nullptr, "k", 6), "4:one\0\0\0"s);
    EXPECT_EQ(Read(nullptr, nullptr, 12), "10:one\0three\0\0\0"s);
    EXPECT_EQ(Read("three", nullptr, 2) + Read("one", nullptr, 1), "0:\0\0000:\0"s);
}

TEST_F(IniFile, WritesInPlace) {
    const struct {
        std::string before;
        const char* key;
        const char* value;
        std::string after;
    } cases[] = {
        {"[s]\n;c\nk=1\nl=2\n[t]\n", "k", "9", "[s]\n;c\n\nk=9\nl=2\n[t]\n"},
        {"[s]\njunk\nk = 1 ; c\r\nl=2", "k", "long", "[s]\njunk\nk=long\nl=2"},
        {"[s]\nk=1\n\n[t]\nk=2", "n", "3", "[s]\nk=1\n\nn=3\n[t]\nk=2"},
        {"[t]\n[s]\nk=1", "n", "", "[t]\n[s]\nk=1\nn=\n"},
        {"[S]\nk=1", "k", "2", "[S]\nk=1\n[s]\n\nk=2\n"},
        {"", "k", "2", "\n[s]\n\nk=2\n"},
        {"[s]\nk=1\nl=2\n", "k", nullptr, "[s]\nl=2\n"},
        {"a\n[s]\nk=1\n;c\n[t]\n[s]\n", nullptr, nullptr, "a\n[t]\n[s]\n"},
        {"a\n[s]\nk=1", nullptr, "v", "a\n"},
        {"[t]\n", nullptr, nullptr, "[t]\n"},
        {"[s]\nz\nk=" + kLong + kLong + "\nl=2\n", "k", "1", "[s]\nz\nk=1\n" + kLong.substr(22) + "\nl=2\n"},
        {kPiece + "[s]\n" + kPiece + "y  [s]\nk=1\n", "k", "2", kPiece + "[s]\n" + kPiece + "y  [s]\n\nk=2\n"},
        {"[s]\n" + kPiece + "k=1\n", "k", "2", "[s]\n" + kPiece + "k=1\nk=2\n"},
        {"[s]\n" + kPiece + "yk=1\n", "k", "2", "[s]\n" + kPiece + "y\nk=2\n"},
    };
    for (const auto& [before, key, value, after] : cases) {
        WriteAll(path_, before);
        const CTraceCapture trace;
        EXPECT_TRUE(ini_.SetString("s", key, value) && Content() == after) << before << Content();
        EXPECT_EQ(trace.All().substr(29), (key == nullptr ? "<nil>"s : key) + ", " +
                                              (value == nullptr ? "<nil>" : value) + ", " + path_ +
                                              ")\nWritePrivateProfileString rc=0x0001\n");
        EXPECT_FALSE(ini_.SetString("s", "k", "1\n[t]") || ini_.SetString(nullptr, "k", "1") || Content() != after);
    }
}

TEST_F(IniFile, NumbersEnumerationAndCopies) {
    EXPECT_TRUE(ini_.SetNumber("s", "minus", -5) && ini_.SetNumber("s", "big", 4000000000U));
    EXPECT_TRUE(ini_.SetString("s", "hex", "0x1F rest") && ini_.CopySection("s", "copy") && ini_.DeleteSection("s"));
    EXPECT_FALSE(ini_.CopySection("s", "copy"));
    EXPECT_EQ(Content(), "\n[copy]\n\nminus=-5\nbig=4000000000\nhex=0x1F rest\n");
    EXPECT_EQ(ini_.GetNumber("copy", "minus", 1), 4294967291U);
    EXPECT_EQ(ini_.GetNumber("copy", "big", 1), 4000000000U);
    EXPECT_EQ(ini_.GetNumber("copy", "hex", 1) + ini_.GetNumber("copy", "none", 7), 31U + 7U);
    std::string name;
    std::vector<std::string> names;
    EXPECT_TRUE(ini_.GetEnum(name, "copy") && ini_.GetNextEnum(name) && name == "big");
    EXPECT_TRUE(ini_.GetNextEnum(name) && !ini_.GetNextEnum(name) && name == "hex");
    EXPECT_TRUE(ini_.GetSections(names) && names == std::vector<std::string>{"copy"});

    std::string many = "[m]\n";  // names for 64 KiB, the limit
    for (int i = 10000; i < 20921; ++i) {
        many += std::to_string(i) + "=\n";
    }
    WriteAll(path_, many);
    EXPECT_TRUE(ini_.GetEnums(names, "m") && names.size() == 10921U);
    WriteAll(path_, many + "20921=\n20922=\n");
    EXPECT_FALSE(ini_.GetEnums(names, "m"));
}

TEST_F(IniFile, FilesThatCannotBeUsed) {
    CTraceCapture trace;
    EXPECT_TRUE(ini_.Open(false) && !ini_.Open(true) && !ini_.IsOpen());
    EXPECT_EQ(Read("s", "k", 7), "6:defaul\0"s);
    EXPECT_TRUE(ini_.DeleteKey("s", "k") && !std::filesystem::exists(path_));
    EXPECT_EQ(trace.All(), "GetPrivateProfileString: Cannot open " + path_ +
                               "\nWritePrivateProfileString(s, k, <nil>, " + path_ + ")\n");
    const mode_t mask = ::umask(077);
    EXPECT_TRUE(ini_.SetString("s", "k", "1"));
    ::umask(mask);
    EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0644));

    const auto refuses = [&](const std::string& path, const std::string& why) {
        trace.Clear();
        EXPECT_FALSE(CIniFile(path.c_str()).SetString("s", "k", "22"));
        EXPECT_EQ(trace.Prints().back(), "WritePrivateProfileString: ## WARNING: append open error: " + why + "\n");
        EXPECT_FALSE(CIniFile(path.c_str()).DeleteKey("s", "k"));
    };
    refuses(directory_ / ".", "Is a directory");
    EXPECT_FALSE(CIniFile().Open((directory_ / ".").c_str(), true));
    ASSERT_EQ(::mkfifo((directory_ / "pipe").c_str(), 0600), 0);
    refuses(directory_ / "pipe", "Invalid argument");
    ASSERT_TRUE(::chmod(path_.c_str(), 0444) == 0 && ::chmod((directory_ / ".").c_str(), 0755) == 0);
    InChild([&] {
        ASSERT_TRUE(::getuid() != 0 || ::setuid(65534) == 0);
        refuses(path_, "Permission denied");
        EXPECT_TRUE(ini_.Open(true));
    });
}

TEST_F(IniFile, AFailedWriteLeavesTheFileAsItWas) {
    const std::string before = "[s]\nk=1\nl=2\n" + kLong + "\n[t]\nlast=1\n";
    const auto unchanged = [&](const char* key, const char* value) {
        const std::string old = Content();
        const CTraceCapture trace;
        EXPECT_TRUE(!ini_.SetString("s", key, value) && trace.Has("WritePrivateProfileString rc=0x0000\n"));
        EXPECT_EQ(Content(), old);
    };
    WriteAll(path_, before);
    InChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{before.size() + 3, before.size() + 3};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        unchanged("k", "123456");
        unchanged("new", "1");
        EXPECT_TRUE(ini_.SetString("s", "k", "123") && Content().size() == before.size() + 3);
    });
    // The growth fits, and then overwriting needs room where the file had a hole.
    InPrivateNamespace([&] {
        ASSERT_EQ(::mount("none", (directory_ / "").c_str(), "tmpfs", 0, "size=16k"), 0);
        WriteAll(path_, before);
        ASSERT_EQ(::truncate(path_.c_str(), 20480 - 4), 0);
        std::ofstream(path_, std::ios::app) << "\n";
        WriteAll(directory_ / "filler", std::string(8192, 'f'));
        unchanged("k", "12");
        ASSERT_EQ(::unlink(path_.c_str()), 0);
        WriteFile(directory_ / "filler", std::string(20480, 'f'));
        std::filesystem::create_symlink(path_, directory_ / "link");
        for (const std::string& path : {path_, directory_ / "link"}) {
            const CTraceCapture trace(1);
            EXPECT_FALSE(CIniFile(path.c_str()).SetString("s", "k", "1"));
            EXPECT_EQ(trace.All(),
                      "WritePrivateProfileString: ## WARNING: append open error: No space left on device\n");
            EXPECT_TRUE(!std::filesystem::exists(path_) && std::filesystem::is_symlink(directory_ / "link"));
        }
    });
}
