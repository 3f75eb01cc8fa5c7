#include <algorithm>
#include <map>
#include <vector>

#include "fuzz/Fuzz.h"
#include "platform/IniFile.h"

namespace {

using Content = std::map<std::pair<std::string, std::string>, std::string>;

/// The values by section and key.
Content ReadAll(const std::string& path) {
    Content content;
    CIniFile file(path.c_str());
    std::vector<std::string> sections;
    file.GetSections(sections);
    for (const std::string& section : sections) {
        std::vector<std::string> keys;
        file.GetEnums(keys, section.c_str());
        for (const std::string& key : keys) {
            file.GetString(content[{section, key}], section.c_str(), key.c_str(), nullptr);
        }
    }
    return content;
}

/// True for a text that a file can hold as a name, or as a value.
bool IsPlain(const std::string& text) {
    const auto isPlain = [](unsigned char c) {
        return c > 0x20 && c != 0x7F && std::string_view("[]=;").find(static_cast<char>(c)) == std::string_view::npos;
    };
    return !text.empty() && text.size() < 300 && std::all_of(text.begin(), text.end(), isPlain);
}

void ReadInto(unsigned int size, const char* section, const char* key, const char* path) {
    std::vector<char> buffer(size, 'x');  // on the heap, of this very size: writing beyond is noticed
    const unsigned int stored = CIniFile::GetPrivateProfileString(section, key, "fallback", buffer.data(), size, path);
    Expect(stored < size && buffer[stored] == '\0', "a result ends with a zero inside its buffer");
}

void CheckWrite(const std::string& path, const std::string& section, const std::string& key, const std::string& value) {
    Content wanted = ReadAll(path);
    CIniFile file(path.c_str());
    Expect(file.SetString(section.c_str(), key.c_str(), value.c_str()), "a file can be written");
    wanted[{section, key}] = value;
    Expect(ReadAll(path) == wanted, "a write changes its own value and no other");
    Expect(file.SetNumber(section.c_str(), key.c_str(), -7) &&
               file.GetNumber(section.c_str(), key.c_str(), 1) == static_cast<unsigned int>(-7),
           "a number is read as written");
}

}  // namespace

/// Section, key, value, the size of a buffer and the content of a file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const CFuzzDirectory directory;
    CFuzzInput input(data, size);
    const std::string section = input.CText();
    const std::string key = input.CText();
    const std::string value = input.CText();
    const auto bufferSize = static_cast<unsigned int>(input.Number() & 0xFF) + 1;
    const std::string path = directory.Write("any.ini", input.Rest());

    ReadInto(bufferSize, section.c_str(), key.c_str(), path.c_str());
    ReadInto(bufferSize, section.c_str(), nullptr, path.c_str());
    ReadInto(bufferSize, nullptr, nullptr, path.c_str());
    ReadAll(path);
    CIniFile file(path.c_str());
    if (IsPlain(section) && IsPlain(key) && IsPlain(value)) {
        CheckWrite(path, section, key, value);
    } else {
        file.SetString(section.c_str(), key.c_str(), value.c_str());
    }
    file.CopySection(section.c_str(), value.c_str());
    file.DeleteKey(section.c_str(), key.c_str());
    file.DeleteSection(section.c_str());
    ReadAll(path);
    return 0;
}
