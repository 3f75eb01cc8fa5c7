// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <system_error>

#include "platform/diagnostics/Trace.h"
#include "platform/files/InPlaceFile.h"
#include "platform/ini/IniFile.h"
#include "platform/ini/IniText.h"

namespace {

const char* OrNil(const char* text) {
    return text == nullptr ? "<nil>" : text;
}

/// The caller's buffer, zeroed. Each store keeps a final zero.
class CResultBuffer {
public:
    CResultBuffer(char* buffer, std::size_t size) : buffer_(buffer), size_(size) { std::memset(buffer, 0, size); }

    unsigned int StoreValue(std::string_view value) {
        stored_ = value.copy(buffer_, size_ - 1);
        return Stored();
    }

    /// A name for which there is no room is cut, and fills the buffer.
    void AddName(std::string_view name) {
        if (name.empty()) {
            return;  // it would end the list
        }
        if (stored_ + name.size() + 2 <= size_) {
            stored_ += name.copy(buffer_ + stored_, name.size()) + 1;
        } else if (size_ >= 2) {
            // What was stored may end a byte behind the place where a full list ends.
            const std::size_t full = size_ - 2;
            name.copy(buffer_ + stored_, full - std::min(full, stored_));
            stored_ = full;
        }
    }

    unsigned int Stored() const { return static_cast<unsigned int>(stored_); }

private:
    char* const buffer_;
    const std::size_t size_;
    std::size_t stored_ = 0;
};

unsigned int ListSections(CIniText& text, CResultBuffer& result) {
    CIniLine line;
    while (text.Next(line)) {
        if (const std::optional<std::string_view> name = line.Header()) {
            result.AddName(*name);
        }
    }
    return result.Stored();
}

unsigned int ListKeys(CIniText& text, CResultBuffer& result) {
    CIniLine line;
    std::string_view name;
    std::string_view value;
    while (text.NextOfSection(line)) {
        if (line.Split(name, value)) {
            result.AddName(name);
        }
    }
    return result.Stored();
}

std::optional<std::string_view> FindValue(CIniText& text, std::string_view key,
                                          CIniLine::Comment comment = CIniLine::Comment::Anywhere) {
    CIniLine line;
    while (text.NextOfSection(line)) {
        if (const std::optional<std::string_view> value = line.ValueOf(key, comment)) {
            return value;
        }
    }
    return std::nullopt;
}

struct CChange {
    std::size_t begin{};
    std::size_t end{};
    std::string text;
};

/// @return nothing when there is nothing to delete
std::optional<CChange> PlanChange(std::string_view text, std::string_view section, const char* key, const char* value) {
    const bool deletion = key == nullptr || value == nullptr;
    const std::string entry = deletion ? std::string() : std::string(key) + "=" + value + "\n";
    CIniText lines(text);
    CIniLine header;
    if (!lines.FindSection(section, header)) {
        return deletion
                   ? std::nullopt
                   : std::optional<CChange>({text.size(), text.size(), "\n[" + std::string(section) + "]\n\n" + entry});
    }
    CIniLine line;
    bool first = true;
    while (lines.NextOfSection(line)) {
        if (key != nullptr && line.ValueOf(key)) {
            return CChange{line.begin, line.end, first && !deletion ? "\n" + entry : entry};
        }
        first = first && !line.HasContent();
    }
    if (key == nullptr) {
        return CChange{header.begin, line.begin, {}};
    }
    return deletion ? std::nullopt : std::optional<CChange>({line.begin, line.begin, entry});
}

/// An end of file without newline, or the limit of a line, can be in front of the new text.
void StartOnNewLine(std::string_view text, CChange& change) {
    if (!text.substr(0, change.begin).ends_with('\n') && !change.text.empty() && !change.text.starts_with('\n')) {
        change.text.insert(0, 1, '\n');
    }
}

/// Carries the change out on a file that was loaded as `text`.
bool Apply(CInPlaceFile& file, std::string_view text, std::optional<CChange> change) {
    if (!change) {
        return true;
    }
    StartOnNewLine(text, *change);
    return file.Replace(text, change->begin, change->end, change->text);
}

/// Makes a file that holds nothing but the entry; a failure leaves none, and errno.
bool Create(const char* section, const char* key, const char* value, const char* path) {
    std::string text;
    CInPlaceFile file;
    if (!file.Load(path, text, O_RDWR | O_CREAT)) {
        return false;
    }
    if (file.SetMode(0644) && Apply(file, text, PlanChange(text, section, key, value))) {
        return true;
    }
    if (text.empty()) {  // else somebody has made it meanwhile
        file.Remove(path);
    }
    return false;
}

bool HasLineBreak(const char* text) {
    return text != nullptr && std::strpbrk(text, "\r\n") != nullptr;
}

}  // namespace

unsigned int CIniFile::GetPrivateProfileString(const char* section, const char* key, const char* fallback, char* buffer,
                                               unsigned int size, const char* path) {
    if (buffer == nullptr || size == 0) {
        return 0;
    }
    CResultBuffer result(buffer, size);
    const bool hasFallback = section != nullptr && key != nullptr && fallback != nullptr;
    std::string content;
    if (path == nullptr || !CInPlaceFile().Load(path, content)) {
        EM_TRACE(4, "GetPrivateProfileString: Cannot open %s\n", OrNil(path));
        return hasFallback ? result.StoreValue(fallback) : 0;
    }
    CIniText text(content);
    if (section == nullptr) {
        return ListSections(text, result);
    }
    CIniLine header;
    std::optional<std::string_view> value;
    if (text.FindSection(section, header)) {
        if (key == nullptr) {
            return ListKeys(text, result);
        }
        value = FindValue(text, key);
    }
    if (!value && hasFallback) {
        value = fallback;
    }
    return value ? result.StoreValue(*value) : 0;
}

bool CIniFile::GetListString(std::string& list, const char* section, const char* key) const {
    list.clear();
    std::string content;
    if (!CInPlaceFile().Load(path_.c_str(), content)) {
        EM_TRACE(4, "GetPrivateProfileString: Cannot open %s\n", path_.c_str());
        return false;
    }
    CIniText text(content);
    CIniLine header;
    if (text.FindSection(section, header)) {
        list = FindValue(text, key, CIniLine::Comment::BehindBlank).value_or(std::string_view());
    }
    return !list.empty();
}

bool CIniFile::WritePrivateProfileString(const char* section, const char* key, const char* value, const char* path) {
    EM_TRACE(4, "WritePrivateProfileString(%s, %s, %s, %s)\n", OrNil(section), OrNil(key), OrNil(value), OrNil(path));
    if (section == nullptr || path == nullptr || HasLineBreak(section) || HasLineBreak(key) || HasLineBreak(value)) {
        return false;
    }
    const bool deletion = key == nullptr || value == nullptr;
    std::string text;
    CInPlaceFile file;
    const bool opened = file.Load(path, text, O_RDWR);
    if (!opened && errno == ENOENT && (deletion || Create(section, key, value, path))) {
        return true;
    }
    if (!opened) {
        EM_TRACE(1, "WritePrivateProfileString: ## WARNING: append open error: %s\n",
                 std::generic_category().message(errno).c_str());
        return false;
    }
    const bool done = Apply(file, text, PlanChange(text, section, key, value));
    EM_TRACE(4, "WritePrivateProfileString rc=0x%04x\n", static_cast<unsigned int>(done));
    return done;
}
