// SPDX-License-Identifier: Apache-2.0
#include "platform/diagnostics/DebugTraceConfigFile.h"

#include <cstdlib>
#include <string_view>
#include <sys/stat.h>

#include "platform/IgnoreCase.h"
#include "platform/files/RegularFile.h"

namespace {

constexpr std::size_t kMaxFileSize = 1 << 20;

bool IsNewer(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

/// The name between "[" and "]", empty when the bracket is not closed. `open` is the position of "[".
std::string SectionName(const std::string& text, std::size_t open) {
    const std::size_t close = text.find(']', open);
    return close == std::string::npos ? std::string() : text.substr(open + 1, close - open - 1);
}

}  // namespace

bool CDebugTraceConfigFile::ReadCompleteFile(std::string& text) {
    struct stat status {};
    if (ReadRegularFile(path_, kMaxFileSize, text, status) != 0 ||
        text.size() != static_cast<std::size_t>(status.st_size)) {
        return false;
    }
    const std::size_t last = text.rfind('[');
    if (last == std::string::npos || !EqualIgnoringCase(SectionName(text, last), "EndOfFile")) {
        return false;
    }
    size_ = status.st_size;
    modified_ = status.st_mtim;
    return true;
}

bool CDebugTraceConfigFile::OpenSectionInIniFile(const char* section, const char* fileName, const char* directory) {
    CloseSectionInIniFile();
    path_ = std::string(directory) + "/" + fileName;
    std::string text;
    if (!ReadCompleteFile(text)) {
        return false;
    }
    for (std::size_t open = text.find('['); open != std::string::npos; open = text.find('[', open + 1)) {
        if (SectionName(text, open) == section) {
            const std::size_t begin = text.find(']', open) + 1;
            sectionText_ = text.substr(begin, text.find('[', begin) - begin);
            return true;
        }
    }
    return false;
}

bool CDebugTraceConfigFile::GetNumberFromIniFile(const char* key, unsigned int& value) const {
    const std::size_t keyAt = sectionText_.find(key);
    const std::size_t equals = keyAt == std::string::npos ? keyAt : sectionText_.find('=', keyAt);
    if (equals == std::string::npos) {
        return false;
    }
    const std::string rest = sectionText_.substr(equals + 1);
    value = static_cast<unsigned int>(std::strtoul(rest.substr(0, rest.find('\n')).c_str(), nullptr, 0));
    return true;
}

void CDebugTraceConfigFile::CloseSectionInIniFile() {
    sectionText_.clear();
    modified_ = {};
}

CDebugTraceConfigFile::Change CDebugTraceConfigFile::CheckForChange() {
    struct stat status {};
    if (::stat(path_.c_str(), &status) != 0) {
        CloseSectionInIniFile();
        return Change::Gone;
    }
    if (IsNewer(status.st_mtim, modified_)) {
        return Change::Newer;
    }
    const bool same = !IsNewer(modified_, status.st_mtim) && status.st_size == size_;
    return same ? Change::None : Change::Other;
}
