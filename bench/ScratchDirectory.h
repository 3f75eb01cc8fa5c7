#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/// A directory of its own below /tmp, on the machine's real file system; gone with the object.
class CScratchDirectory {
public:
    CScratchDirectory() { ::mkdtemp(path_.data()); }
    ~CScratchDirectory() { std::filesystem::remove_all(path_); }
    CScratchDirectory(const CScratchDirectory&) = delete;
    CScratchDirectory& operator=(const CScratchDirectory&) = delete;

    std::string File(const std::string& name) const { return path_ + "/" + name; }
    const std::string& Path() const { return path_; }

    /// @return the path of the new file
    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(File(name)) << content;
        return File(name);
    }

private:
    std::string path_ = "/tmp/em_alert_bench.XXXXXX";
};
