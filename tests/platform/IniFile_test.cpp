#include "platform/IniFile.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "PrivateNamespace.h"
#include "support/TraceCapture.h"

using namespace std::string_literals;

namespace {

class IniFile : public ::testing::Test {
protected:
    void SetUp() override {
        directory_ = ::testing::TempDir() + "iniXXXXXX";
        ASSERT_NE(::mkdtemp(directory_.data()), nullptr);
        ::chmod(directory_.c_str(), 0755);
        path_ = directory_ + "/test.ini";
        ini_.SetFilename(path_.c_str());
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    std::string Content() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::string Read(const char* section, const char* key, unsigned int size) const {
        std::string buffer(size + 1, '#');
        const unsigned int stored =
            CIniFile::GetPrivateProfileString(section, key, "default", buffer.data(), size, path_.c_str());
        EXPECT_EQ(buffer.back(), '#');
        return std::to_string(stored) + ":" + buffer.substr(0, size);
    }

    std::string directory_;
    std::string path_;
    CIniFile ini_;
};

const std::string kLong(1000, 'x');

}  // namespace

TEST_F(IniFile, ReadsValues) {
    WriteAll(path_,
             "\xEF\xBB\xBF[first]\r\n; note\r\n\r\n  a  =\t b c \r\nq=a;b\r\nempty=\r\nnokey\r\n=v\r\n[ Log ]\n"
             "a=blanks\n[open\n[Log] ; x\nA=upper\na=lower\na=again\nzero=1\0002\nx=[y]\nlong="s +
                 kLong + kLong + "\n[Log]\nlate=1\n[end]\nlast=no newline"s);
    const char* const cases[][3] = {
        {"first", "a", "b c"},    {"first", "q", "a"},     {"first", "empty", ""},       {"first", "nokey", "default"},
        {"Log", "a", "lower"},    {"Log", "zero", "1"},    {"Log", "x", "[y]"},          {"Log", "late", "default"},
        {" Log ", "a", "blanks"}, {"log", "a", "default"}, {"end", "last", "no newline"}};
    std::string value;
    for (const auto& [section, key, expected] : cases) {
        EXPECT_EQ(ini_.GetString(value, section, key, "default"), *expected != '\0');
        EXPECT_EQ(value, expected) << section << " " << key;
    }
    EXPECT_TRUE(ini_.GetString(value, "Log", "long", ""));
    EXPECT_EQ(value, kLong + std::string(19, 'x'));
}

TEST_F(IniFile, CutsWhatDoesNotFit) {
    WriteAll(path_, "[one]\nk=value\nkey2=\n=\n[]\n[three]\n");
    EXPECT_EQ(Read("one", "k", 6), "5:value\0"s);
    EXPECT_EQ(Read("one", "k", 5), "4:valu\0"s);
    EXPECT_EQ(Read("one", "none", 5), "4:defa\0"s);
    EXPECT_EQ(Read("one", "k", 1), "0:\0"s);
    EXPECT_EQ(Read("one", nullptr, 8), "7:k\0key2\0\0"s);
    EXPECT_EQ(Read("one", nullptr, 7), "5:k\0key\0\0"s);
    EXPECT_EQ(Read(nullptr, "k", 6), "4:one\0\0\0"s);
    EXPECT_EQ(Read(nullptr, nullptr, 12), "10:one\0three\0\0\0"s);
    EXPECT_EQ(Read("three", nullptr, 2), "0:\0\0"s);
    EXPECT_EQ(Read("one", nullptr, 1), "0:\0"s);
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
        {"[s]\nk=1\n", "n", nullptr, "[s]\nk=1\n"},
        {"a\n[s]\nk=1\n;c\n[t]\n[s]\n", nullptr, nullptr, "a\n[t]\n[s]\n"},
        {"a\n[s]\nk=1", nullptr, "v", "a\n"},
        {"[t]\n", nullptr, nullptr, "[t]\n"},
        {"[s]\nz\nk=" + kLong + kLong + "\nl=2\n", "k", "1", "[s]\nz\nk=1\n" + kLong.substr(22) + "\nl=2\n"},
        {"[s]\n" + kLong + "12345678901234567890123k=1\n", "k", "2",
         "[s]\n" + kLong + "12345678901234567890123k=1\nk=2\n"},
        {"[s]\n" + kLong + "123456789012345678901234k=1\n", "k", "2",
         "[s]\n" + kLong + "123456789012345678901234\nk=2\n"},
    };
    for (const auto& [before, key, value, after] : cases) {
        WriteAll(path_, before);
        const CTraceCapture trace;
        EXPECT_TRUE(CIniFile::WritePrivateProfileString("s", key, value, path_.c_str()));
        EXPECT_EQ(Content(), after) << before;
        EXPECT_EQ(trace.All(), "WritePrivateProfileString(s, "s + (key == nullptr ? "<nil>" : key) + ", " +
                                   (value == nullptr ? "<nil>" : value) + ", " + path_ +
                                   ")\nWritePrivateProfileString rc=0x0001\n");
    }
    EXPECT_FALSE(ini_.SetString("s", "k", "1\n[t]"));
    EXPECT_FALSE(ini_.SetString(nullptr, "k", "1"));
    EXPECT_EQ(Content(), cases[std::size(cases) - 1].after);
}

TEST_F(IniFile, NumbersEnumerationAndCopies) {
    EXPECT_TRUE(ini_.SetNumber("s", "minus", -5));
    EXPECT_TRUE(ini_.SetNumber("s", "big", 4000000000U));
    EXPECT_TRUE(ini_.SetString("s", "hex", "0x1F rest"));
    EXPECT_TRUE(ini_.CopySection("s", "copy"));
    EXPECT_TRUE(ini_.DeleteSection("s"));
    EXPECT_FALSE(ini_.CopySection("s", "copy"));
    EXPECT_EQ(Content(), "\n[copy]\n\nminus=-5\nbig=4000000000\nhex=0x1F rest\n");
    EXPECT_EQ(ini_.GetNumber("copy", "minus", 1), 4294967291U);
    EXPECT_EQ(ini_.GetNumber("copy", "big", 1), 4000000000U);
    EXPECT_EQ(ini_.GetNumber("copy", "hex", 1), 31U);
    EXPECT_EQ(ini_.GetNumber("copy", "none", 7), 7U);
    std::string name;
    EXPECT_TRUE(ini_.GetEnum(name, "copy") && ini_.GetNextEnum(name) && ini_.GetNextEnum(name));
    EXPECT_EQ(name, "hex");
    EXPECT_FALSE(ini_.GetNextEnum(name));
    std::vector<std::string> names;
    EXPECT_TRUE(ini_.GetSections(names));
    EXPECT_EQ(names, std::vector<std::string>{"copy"});
}

TEST_F(IniFile, ListsGrowUpTo64KiB) {
    std::string many = "[m]\n";
    for (int i = 10000; i < 20921; ++i) {
        many += std::to_string(i) + "=\n";
    }
    WriteAll(path_, many);
    std::vector<std::string> names;
    EXPECT_TRUE(ini_.GetEnums(names, "m"));
    EXPECT_EQ(names.size(), 10921U);
    WriteAll(path_, many + "20921=\n20922=\n");
    EXPECT_FALSE(ini_.GetEnums(names, "m"));
}

TEST_F(IniFile, FilesThatCannotBeUsed) {
    CTraceCapture trace;
    EXPECT_TRUE(ini_.Open(false));
    EXPECT_FALSE(ini_.Open(true) || ini_.IsOpen());
    EXPECT_EQ(Read("s", "k", 7), "6:defaul\0"s);
    EXPECT_TRUE(ini_.DeleteKey("s", "k"));
    EXPECT_FALSE(std::filesystem::exists(path_));
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
    refuses(directory_, "Is a directory");
    EXPECT_FALSE(CIniFile().Open(directory_.c_str(), true));
    ASSERT_EQ(::mkfifo((directory_ + "/pipe").c_str(), 0600), 0);
    refuses(directory_ + "/pipe", "Invalid argument");
    ::chmod(path_.c_str(), 0444);
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
        EXPECT_FALSE(CIniFile::WritePrivateProfileString("s", key, value, path_.c_str()));
        EXPECT_EQ(trace.Prints().back(), "WritePrivateProfileString rc=0x0000\n");
        EXPECT_EQ(Content(), old);
    };
    WriteAll(path_, before);
    InChild([&] {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{before.size() + 3, before.size() + 3};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        unchanged("k", "123456");
        unchanged("new", "1");
        EXPECT_TRUE(CIniFile::WritePrivateProfileString("s", "k", "123", path_.c_str()));
        EXPECT_EQ(Content().size(), before.size() + 3);
    });
    // The growth fits, and then overwriting needs room where the file had a hole.
    InPrivateNamespace([&] {
        ASSERT_EQ(::mount("none", directory_.c_str(), "tmpfs", 0, "size=16k"), 0);
        WriteAll(path_, before);
        ASSERT_EQ(::truncate(path_.c_str(), 20480 - 4), 0);
        std::ofstream(path_, std::ios::app) << "\n";
        WriteAll(directory_ + "/filler", std::string(8192, 'f'));
        unchanged("k", "12");
    });
}
