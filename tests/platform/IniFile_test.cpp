// SPDX-License-Identifier: Apache-2.0
#include "platform/ini/IniFile.h"

#include <regex>

#include "Platform.h"

namespace {

class IniFile : public ::testing::Test {
protected:
    std::string Content() const { return ReadFile(path_); }
    std::string Read(const char* section, const char* key, const char* fallback, unsigned int size) const {
        std::string buffer(size + 1, '#');
        const auto stored =
            CIniFile::GetPrivateProfileString(section, key, fallback, buffer.data(), size, path_.c_str());
        EXPECT_EQ(buffer.back(), '#');
        return std::to_string(stored) + ":" + buffer.substr(0, size);
    }

    const CTempDirectory directory_;
    const std::string path_ = directory_ / "test.ini";
    CIniFile ini_{path_.c_str()};
};

}  // namespace

/// This program's own: the kernel may write less than it is asked to.
extern "C" ssize_t pwrite(int file, const void* bytes, std::size_t size, off_t offset) {
    return ::syscall(SYS_pwrite64, file, bytes, std::min<std::size_t>(size, 7), offset);
}

TEST_F(IniFile, ReadsAndWritesAsItsRulesSay) {
    const auto orNull = [](const std::string& text) { return text == "<nil>" ? nullptr : text.c_str(); };
    for (const auto& row : Cases("ini_file.cases", "get")) {
        WriteAll(path_, row[5]);
        EXPECT_EQ(Read(orNull(row[1]), orNull(row[2]), orNull(row[3]), Number(row[4])), row[6]) << row[5];
    }
    for (const auto& row : Cases("ini_file.cases", "set")) {
        const auto write = [&] {
            WriteAll(path_, row[5]);
            const bool isDone =
                CIniFile::WritePrivateProfileString(orNull(row[1]), orNull(row[2]), orNull(row[3]), path_.c_str());
            EXPECT_EQ(std::to_string(static_cast<int>(isDone)) + Content(), row[4] + row[6]) << row[5];
        };
        const std::string call = row[1] + ", " + row[2] + ", " + row[3] + ", /dev/shm/em#/test.ini)\n";
        EXPECT_EQ(TracesByLevel(write), "4 WritePrivateProfileString(" +
                                            std::regex_replace(call, std::regex("\n"), "\\n") +
                                            (row[4] == "1" ? "\n4 WritePrivateProfileString rc=0x0001\\n\n" : "\n"));
    }
    EXPECT_FALSE(CIniFile::WritePrivateProfileString("s", "k", "1", nullptr));
    EXPECT_EQ(CIniFile::GetPrivateProfileString("s", "k", "d", nullptr, 5, path_.c_str()), 0U);
}

TEST_F(IniFile, NumbersEnumerationAndCopies) {
    EXPECT_TRUE(ini_.SetNumber("s", "minus", -5) && ini_.SetNumber("s", "big", 4000000000U));
    const std::string digits(28, '0');
    EXPECT_TRUE(ini_.SetString("s", "hex", ("0x" + digits + "1F").c_str()) && ini_.CopySection("s", "copy"));
    EXPECT_TRUE(ini_.DeleteSection("s") && ini_.CopySection("copy", "copy"));
    EXPECT_FALSE(ini_.CopySection("s", "copy") || ini_.CopySection("copy", nullptr));
    EXPECT_EQ(Content(), "\n[copy]\n\nminus=-5\nbig=4000000000\nhex=0x" + digits + "1F\n");
    EXPECT_EQ(ini_.GetNumber("copy", "minus", 1), 4294967291U);
    EXPECT_EQ(ini_.GetNumber("copy", "big", 1), 4000000000U);
    EXPECT_EQ(ini_.GetNumber("copy", "hex", 1) + ini_.GetNumber("copy", "none", 7), 1U + 7U);  // 31 digits count
    EXPECT_TRUE(ini_.SetNumber("", "k", 1U) && !ini_.CopySection(nullptr, "to") && ini_.DeleteSection(""));
    std::string name;
    std::vector<std::string> names;
    EXPECT_TRUE(ini_.GetEnum(name, "copy") && ini_.GetNextEnum(name) && name == "big");
    EXPECT_TRUE(ini_.GetNextEnum(name) && !ini_.GetNextEnum(name) && name == "hex");
    EXPECT_TRUE(ini_.GetSections(names) && names == std::vector<std::string>{"copy"});

    EXPECT_TRUE(ini_.GetString(name, "copy", "none", std::string(70000, 'f').c_str()) && name.size() == 65535U);
    EXPECT_TRUE(!ini_.GetString(name, "copy", "none", "") && name.empty());
    std::string many = "[m]\n";  // names for 64 KiB, the limit
    for (int i = 10000; i < 20921; ++i) {
        many += std::to_string(i) + "=\n";
    }
    WriteAll(path_, many);
    EXPECT_TRUE(ini_.GetEnums(names, "m") && names.size() == 10921U);
    WriteAll(path_, many + "20921=\n20922=\n");
    EXPECT_FALSE(ini_.GetEnums(names, "m") || ini_.GetEnums(names, "n") || !names.empty());
}

TEST_F(IniFile, FilesThatCannotBeUsed) {
    CTraceCapture trace;
    EXPECT_TRUE(ini_.Open(false) && !ini_.Open(true) && !ini_.IsOpen());
    std::string list = "old";
    EXPECT_TRUE(!ini_.GetListString(list, "s", "k") && list.empty());
    trace.Clear();
    EXPECT_EQ(Read("s", "k", "default", 7), "6:defaul\0"s);
    EXPECT_TRUE(ini_.DeleteKey("s", "k") && !std::filesystem::exists(path_));
    EXPECT_EQ(trace.All(), "GetPrivateProfileString: Cannot open " + path_ +
                               "\nWritePrivateProfileString(s, k, <nil>, " + path_ + ")\n");
    const mode_t mask = ::umask(077);
    EXPECT_TRUE(ini_.SetString("s", "k", "1"));
    ::umask(mask);
    EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0644));

    std::filesystem::resize_file(path_, 64 << 20);
    EXPECT_EQ(Read("s", "k", "default", 3), "1:1\0\0"s);
    std::filesystem::resize_file(path_, (64 << 20) + 1);
    EXPECT_EQ(Read("s", "k", "default", 3), "2:de\0"s);
    std::filesystem::resize_file(path_, 10);

    const auto refuses = [&](const std::string& path, const std::string& why) {
        trace.Clear();
        EXPECT_FALSE(CIniFile(path.c_str()).SetString("s", "k", "22"));
        EXPECT_EQ(trace.Prints().back(), "WritePrivateProfileString: ## WARNING: append open error: " + why + "\n");
        EXPECT_FALSE(CIniFile(path.c_str()).DeleteKey("s", "k"));
    };
    refuses(directory_ / ".", "Is a directory");
    EXPECT_FALSE(CIniFile().Open((directory_ / ".").c_str(), true));
    ASSERT_EQ(::mkfifo((directory_ / "pipe").c_str(), 0600), 0);
    std::fstream pipe(directory_ / "pipe");
    ASSERT_TRUE(pipe << "[s]\nk=1\n" << std::flush);
    refuses(directory_ / "pipe", "Invalid argument");
    ASSERT_TRUE(::chmod(path_.c_str(), 0444) == 0 && ::chmod((directory_ / ".").c_str(), 0755) == 0);
    InChild([&] {
        ASSERT_TRUE(::getuid() != 0 || ::setuid(65534) == 0);
        refuses(path_, "Permission denied");
        EXPECT_TRUE(ini_.Open(true));
    });
}

TEST_F(IniFile, AFailedWriteLeavesTheFileAsItWas) {
    const std::string before = "[s]\nk=1\nl=2\n" + std::string(1000, 'x') + "\n[t]\nlast=1\n";
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
