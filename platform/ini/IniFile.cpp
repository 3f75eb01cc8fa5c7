// SPDX-License-Identifier: Apache-2.0
#include "platform/ini/IniFile.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/files/InPlaceFile.h"

namespace {

constexpr unsigned int kGrowth = 1024;
constexpr unsigned int kFirstValueSize = 2048;
constexpr unsigned int kMaxValueSize = 65536;
constexpr unsigned int kFirstListSize = 1024;
constexpr unsigned int kMaxListSize = 65535;
constexpr unsigned int kNumberSize = 32;

/// A value fills its buffer up to the last byte, a list up to the last but one.
bool MayBeCut(unsigned int stored, std::size_t size) {
    return stored + 2 >= size;
}

}  // namespace

bool CIniFile::Open(bool mustBeReadable) {
    std::string text;
    open_ = !mustBeReadable || CInPlaceFile().Load(path_.c_str(), text);
    return open_;
}

bool CIniFile::Open(const char* path, bool mustBeReadable) {
    SetFilename(path);
    return Open(mustBeReadable);
}

bool CIniFile::GetString(std::string& value, const char* section, const char* key, const char* fallback) const {
    unsigned int stored{};
    value.resize(kFirstValueSize);
    for (;;) {
        const auto size = static_cast<unsigned int>(value.size());
        stored = GetPrivateProfileString(section, key, fallback, value.data(), size, path_.c_str());
        if (!MayBeCut(stored, size) || size >= kMaxValueSize) {
            break;
        }
        value.resize(size + kGrowth);
    }
    value.resize(stored);
    return stored != 0;
}

unsigned int CIniFile::GetNumber(const char* section, const char* key, unsigned int fallback) const {
    char text[kNumberSize];
    const std::string fallbackText = std::to_string(fallback);
    GetPrivateProfileString(section, key, fallbackText.c_str(), text, sizeof text, path_.c_str());
    return static_cast<unsigned int>(std::strtoul(text, nullptr, 0));
}

bool CIniFile::SetString(const char* section, const char* key, const char* value) {
    return WritePrivateProfileString(section, key, value, path_.c_str());
}

bool CIniFile::SetNumber(const char* section, const char* key, unsigned int value) {
    return SetString(section, key, std::to_string(value).c_str());
}

bool CIniFile::SetNumber(const char* section, const char* key, int value) {
    return SetString(section, key, std::to_string(value).c_str());
}

bool CIniFile::DeleteSection(const char* section) {
    return SetString(section, nullptr, nullptr);
}

bool CIniFile::DeleteKey(const char* section, const char* key) {
    return SetString(section, key, nullptr);
}

bool CIniFile::CopySection(const char* from, const char* to) {
    std::vector<std::string> keys;
    if (from == nullptr || to == nullptr || !GetEnums(keys, from)) {
        return false;
    }
    std::string value;
    return std::strcmp(from, to) == 0 || std::ranges::all_of(keys, [&](const std::string& key) {
               GetString(value, from, key.c_str(), "");
               return SetString(to, key.c_str(), value.c_str());
           });
}

bool CIniFile::GetEnum(std::string& key, const char* section) {
    ReadNames(section == nullptr ? "" : section);
    return GetNextEnum(key);
}

bool CIniFile::GetNextEnum(std::string& key) {
    if (nextName_ >= names_.size() || names_[nextName_] == '\0') {
        return false;
    }
    key = &names_[nextName_];
    nextName_ += key.size() + 1;
    return true;
}

bool CIniFile::GetEnums(std::vector<std::string>& keys, const char* section) {
    return CollectNames(keys, ReadNames(section == nullptr ? "" : section));
}

bool CIniFile::GetSections(std::vector<std::string>& sections) {
    return CollectNames(sections, ReadNames(nullptr));
}

/// @param section  null for the names of the sections
/// @return false when the list was cut
bool CIniFile::ReadNames(const char* section) {
    unsigned int stored{};
    std::size_t size = kFirstListSize;
    for (;;) {
        names_.resize(size);
        stored = GetPrivateProfileString(section, nullptr, nullptr, names_.data(), static_cast<unsigned int>(size),
                                         path_.c_str());
        if (!MayBeCut(stored, size) || size >= kMaxListSize) {
            break;
        }
        size = std::min<std::size_t>(size + kGrowth, kMaxListSize);
    }
    nextName_ = 0;
    return !MayBeCut(stored, size);
}

bool CIniFile::CollectNames(std::vector<std::string>& names, bool complete) {
    names.clear();
    std::string name;
    while (GetNextEnum(name)) {
        names.push_back(name);
    }
    return complete && !names.empty();
}
