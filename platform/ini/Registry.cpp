// SPDX-License-Identifier: Apache-2.0
#include "platform/ini/Registry.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "platform/diagnostics/Trace.h"
#include "platform/files/RegularFile.h"
#include "platform/files/UniqueFd.h"
#include "platform/files/WriteAll.h"

namespace {

/// One of the files, as it was found.
struct CFile {
    std::string path;
    CRegistryValues values;
    int error{};        // of reading it
    std::string fault;  // for people; empty when it is whole

    bool IsWhole() const { return fault.empty(); }
    bool Exists() const { return error != ENOENT; }
};

std::string ErrorText(int error) {
    return std::generic_category().message(error);
}

CFile ReadFile(const std::string& path, bool mustBeSummed = true) {
    CFile file{path, {}, 0, {}};
    std::string text;
    file.error = ReadRegularFile(path, kMaxRegistrySize, text);
    file.fault = file.error != 0 ? ErrorText(file.error) : ParseRegistry(text, mustBeSummed, file.values);
    return file;
}

std::string Unusable(const CFile& file) {
    return file.IsWhole() || !file.Exists() ? "" : file.path + " cannot be used (" + file.fault + "). ";
}

int ErrnoUnless(bool success) {
    return success ? 0 : errno;
}

int WriteFile(int fd, std::string_view text) {
    const int error = WriteAll(fd, text);
    return error != 0 ? error : ErrnoUnless(::fsync(fd) == 0);
}

int MakeFile(const std::string& path, const std::string& text) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        return errno;
    }
    CUniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file) {
        return errno;
    }
    const int error = WriteFile(file.Get(), text);
    const int closing = ErrnoUnless(file.Reset() == 0);
    if (error != 0 || closing != 0) {
        ::unlink(path.c_str());  // it may be room that is short
    }
    return error != 0 ? error : closing;
}

int Rename(const std::string& from, const std::string& to) {
    return ErrnoUnless(::rename(from.c_str(), to.c_str()) == 0);
}

int Keep(const std::string& path, const std::string& copy) {
    const bool isFree = ::unlink(copy.c_str()) == 0 || errno == ENOENT;
    return ErrnoUnless(isFree && ::link(path.c_str(), copy.c_str()) == 0);
}

int SyncDirectory(const std::string& directory) {
    const CUniqueFd fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return ErrnoUnless(fd && ::fsync(fd.Get()) == 0);
}

/// There is a whole file with the present or the new state after each step.
int SaveIn(const std::string& directory, const std::string& text) {
    const std::string path = directory + "registry";
    const CFile current = ReadFile(path);
    if (!current.IsWhole()) {
        const CFile cutOff = ReadFile(path + ".new");
        if (cutOff.error != 0 && cutOff.Exists()) {
            return cutOff.error;
        }
        const int error = cutOff.IsWhole() ? Rename(cutOff.path, path + ".old") : 0;
        if (error != 0) {
            return error;
        }
    }
    int error = MakeFile(path + ".new", text);
    if (error == 0 && current.Exists()) {
        error = current.IsWhole() ? Keep(path, path + ".old") : Rename(path, path + ".damaged");
    }
    if (error == 0) {
        error = Rename(path + ".new", path);
    }
    return error != 0 ? error : SyncDirectory(directory);
}

bool IsBelow(std::string_view key, std::string_view top) {
    return top.empty() || (key.size() > top.size() && key.starts_with(top) && key[top.size()] == '/');
}

}  // namespace

CRegistry::CRegistry(std::string directory) : directory_(std::move(directory)) {
    if (!directory_.ends_with('/')) {
        directory_ += '/';
    }
}

CRegistry::CLoaded CRegistry::Load() {
    struct Candidate {
        const char* suffix;
        ESource source;
    };
    constexpr Candidate kCandidates[] = {{"", ESource::Current}, {".new", ESource::New}, {".old", ESource::Old}};

    CLoaded loaded;
    values_.clear();
    const std::string path = directory_ + "registry";
    bool isMissing = false;
    for (const auto& [suffix, source] : kCandidates) {
        CFile file = ReadFile(path + suffix);
        isMissing = isMissing || (source == ESource::Current && !file.Exists());
        if (file.IsWhole()) {
            loaded.source = source;
            values_ = std::move(file.values);
            break;
        }
        // Beside no registry, a part of a new one is the first save, which was cut off.
        loaded.problem += source == ESource::New && isMissing ? "" : Unusable(file);
    }
    if (isMissing && loaded.source == ESource::Old) {
        loaded.problem = path + " is missing. ";
    }
    if (!loaded.problem.empty()) {
        loaded.problem += loaded.source == ESource::Nothing ? "Only the defaults hold. "
                          : loaded.source == ESource::New   ? path + ".new is used instead. "
                                                            : path + ".old is used instead. ";
    }
    CFile defaults = ReadFile(path + ".default", false);
    loaded.problem += Unusable(defaults);
    defaults_ = std::move(defaults.values);
    if (!loaded.problem.empty()) {
        loaded.problem.pop_back();
        EM_TRACE(1, "CRegistry::Load: %s\n", loaded.problem.c_str());
    }
    return loaded;
}

int CRegistry::Save() const {
    const std::string text = FormatRegistry(values_);
    const int error = text.size() > kMaxRegistrySize ? EFBIG : SaveIn(directory_, text);
    if (error != 0) {
        EM_TRACE(1, "CRegistry::Save: the registry in %s cannot be saved: %s\n", directory_.c_str(),
                 ErrorText(error).c_str());
    }
    return error;
}

std::optional<std::string> CRegistry::Get(std::string_view key) const {
    for (const CRegistryValues* const values : {&values_, &defaults_}) {
        const auto found = values->find(key);
        if (found != values->end()) {
            return found->second;
        }
    }
    return std::nullopt;
}

std::int64_t CRegistry::GetNumber(std::string_view key, std::int64_t fallback) const {
    const std::string text = Get(key).value_or("");
    std::int64_t number{};
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    return parsed.ec == std::errc() && parsed.ptr == end ? number : fallback;
}

bool CRegistry::GetBool(std::string_view key, bool fallback) const {
    const std::string text = Get(key).value_or("");
    return text == "true" || (text != "false" && fallback);
}

bool CRegistry::Set(std::string_view key, std::string_view value) {
    const bool isKey = IsRegistryKey(key);
    if (isKey) {
        values_.insert_or_assign(std::string(key), std::string(value));
    }
    return isKey;
}

bool CRegistry::SetNumber(std::string_view key, std::int64_t value) {
    return Set(key, std::to_string(value));
}

bool CRegistry::SetBool(std::string_view key, bool value) {
    return Set(key, value ? "true" : "false");
}

bool CRegistry::Remove(std::string_view key) {
    return std::erase_if(values_, [key](const auto& entry) {
               return !key.empty() && (entry.first == key || IsBelow(entry.first, key));
           }) != 0;
}

std::vector<std::string> CRegistry::Children(std::string_view key) const {
    std::set<std::string> names;
    const std::size_t begin = key.empty() ? 0 : key.size() + 1;
    for (const CRegistryValues* const values : {&values_, &defaults_}) {
        for (const auto& [name, value] : *values) {
            if (IsBelow(name, key)) {
                names.insert(name.substr(begin, name.find('/', begin) - begin));
            }
        }
    }
    return {names.begin(), names.end()};
}
