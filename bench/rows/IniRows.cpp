// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "bench/Row.h"
#include "platform/ini/IniFile.h"
#include "testing/TempDirectory.h"

namespace {

constexpr std::size_t kValueSize = 256;

/// Sections of about 256 bytes each; the one that is read is the last.
std::string IniText(std::size_t bytes) {
    std::string text;
    for (int section = 0; text.size() + 300 < bytes; ++section) {
        text += "[Section" + std::to_string(section) + "]\n; settings of a part of the server\n";
        for (int key = 0; key < 10; ++key) {
            text += "Key" + std::to_string(key) + " = value " + std::to_string(key) + "\n";
        }
    }
    return text + "[Wanted]\nFirst=1\nSecond = two\nThird=the value ; comment\n";
}

void ReadProject(benchmark::State& state, std::size_t bytes) {
    const CTempDirectory directory("/tmp");
    const std::string path = directory.Write("settings.ini", IniText(bytes));
    Measure(state, [&] {
        char value[kValueSize];
        benchmark::DoNotOptimize(
            CIniFile::GetPrivateProfileString("Wanted", "Third", "", value, sizeof value, path.c_str()));
        benchmark::DoNotOptimize(value);
    });
}

std::string_view Trim(std::string_view text) {
    const std::size_t first = std::min(text.find_first_not_of(" \t\r"), text.size());
    return text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

/// A scan line by line, with all that a usual INI file needs.
std::string_view Scan(std::string_view text, std::string_view section, std::string_view key) {
    bool isInside = false;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1);
        const std::string_view whole = text.substr(0, end);
        const std::string_view line = Trim(whole.substr(0, whole.find(';')));
        text.remove_prefix(end + 1);
        if (line.starts_with('[')) {
            isInside = line.substr(1, line.find(']') - 1) == section;
        } else if (isInside && line.starts_with(key) && Trim(line.substr(0, line.find('='))) == key) {
            return Trim(line.substr(line.find('=') + 1));
        }
    }
    return {};
}

void ReadFloor(benchmark::State& state, std::size_t bytes) {
    const CTempDirectory directory("/tmp");
    const std::string path = directory.Write("settings.ini", IniText(bytes));
    Measure(state, [&] {
        char content[16384];
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        const ssize_t length = ::read(fd, content, sizeof content);
        ::close(fd);
        char value[kValueSize];
        const std::string_view found =
            Scan({content, static_cast<std::size_t>(std::max<ssize_t>(length, 0))}, "Wanted", "Third");
        value[found.copy(value, sizeof value - 1)] = '\0';
        benchmark::DoNotOptimize(value);
    });
}

}  // namespace

void AddIniRows() {
    for (const auto& [row, bytes] : {std::pair("ini/1KB", 1024U), std::pair("ini/12KB", 12288U)}) {
        AddRow(
            row, Clock::Cpu, [size = bytes](benchmark::State& state) { ReadProject(state, size); },
            [size = bytes](benchmark::State& state) { ReadFloor(state, size); });
    }
}
