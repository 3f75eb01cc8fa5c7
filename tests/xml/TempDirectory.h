#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

/// A directory of its own for a test, removed with all that is in it. It lies in memory: many saves, each synced.
class CTempDirectory {
public:
    CTempDirectory() {
        if (::mkdtemp(path_.data()) == nullptr) {
            std::abort();
        }
    }
    ~CTempDirectory() { std::filesystem::remove_all(path_); }
    CTempDirectory& operator=(CTempDirectory&&) = delete;  // nor is it copied

    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    auto FileCount() const { return std::distance(std::filesystem::directory_iterator(path_), {}); }

private:
    std::string path_ = "/dev/shm/emXXXXXX";
};

inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The fields, between tabs, of the lines of a data file but those that are empty or begin with "#". "\xNN" stands for
/// a byte, and "@NAME" for the text of a file beside that one.
inline std::vector<std::vector<std::string>> DataRows(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::istringstream fields(line + '\t');
        rows.emplace_back();
        for (std::string field; std::getline(fields, field, '\t'); rows.back().push_back(field)) {
            for (std::size_t at = 0; (at = field.find("\\x", at)) != std::string::npos; ++at) {
                field.replace(at, 4, 1, static_cast<char>(std::stoi(field.substr(at + 2, 2), nullptr, 16)));
            }
            field = field.starts_with('@') ? ReadFile(path.substr(0, path.rfind('/') + 1) + field.substr(1)) : field;
        }
    }
    EXPECT_FALSE(rows.empty()) << path;
    return rows;
}
