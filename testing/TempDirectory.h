// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

/// @return empty as well when the file cannot be read
inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A directory of its own, removed with all that is in it.
class CTempDirectory {
public:
    /// @param parent  in memory unless told otherwise: a test saves many files, each synced
    explicit CTempDirectory(const std::string& parent = "/dev/shm") : path_(parent + "/emXXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr) {
            std::abort();
        }
    }
    ~CTempDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    CTempDirectory& operator=(CTempDirectory&&) = delete;  // nor is it copied

    const std::string& Path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    auto FileCount() const { return std::distance(std::filesystem::directory_iterator(path_), {}); }

    /// @return the path of the new file
    std::string Write(const std::string& name, const std::string& text) const {
        WriteFile(*this / name, text);
        return *this / name;
    }

private:
    std::string path_;
};
