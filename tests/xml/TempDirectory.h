#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

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
    CTempDirectory(const CTempDirectory&) = delete;
    CTempDirectory& operator=(const CTempDirectory&) = delete;

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
