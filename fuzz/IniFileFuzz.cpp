// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "fuzz/Fuzz.h"
#include "fuzz/IniFileModel.h"
#include "platform/ini/IniFile.h"

namespace {

/// One file in two forms, which must never differ.
class CPair {
public:
    CPair(std::string path, const std::string& text) : model(text), file(path.c_str()), path_(std::move(path)) {}

    void Compare(const char* promise) const { Expect(ReadFile(path_) == model.Text(), promise); }

    /// What the product stores, on the heap in a buffer of this very size: writing beyond is noticed.
    std::string Stored(unsigned int size, const char* section, const char* key, const char* fallback) const {
        std::vector<char> buffer(size, 'x');
        const unsigned int count =
            CIniFile::GetPrivateProfileString(section, key, fallback, buffer.data(), size, path_.c_str());
        return std::to_string(count) + ":" + std::string(buffer.begin(), buffer.end());
    }
    void CompareReading(unsigned int size, const std::string& section, const std::string& key) const {
        Expect(Stored(size, section.c_str(), key.c_str(), "fallback") ==
                   CIniModel::InBuffer(model.Value(section, key).value_or("fallback"), size),
               "a value is the one of the first such key in the first such section");
        Expect(Stored(size, section.c_str(), nullptr, "x") == CIniModel::InBuffer(model.Keys(section), size),
               "a section's keys are listed in order");
        Expect(Stored(size, nullptr, key.c_str(), "x") == CIniModel::InBuffer(model.Sections(), size),
               "the sections are listed in order");
        std::string value = "old";
        const std::string wanted = model.Value(section, key).value_or("none");
        Expect(file.GetString(value, section.c_str(), key.c_str(), "none") == !wanted.empty() && value == wanted,
               "GetString finds the same");
        const auto number = static_cast<unsigned int>(
            std::strtoul(model.Value(section, key).value_or("77").substr(0, 31).c_str(), nullptr, 0));
        Expect(file.GetNumber(section.c_str(), key.c_str(), 77) == number, "a number is read in C's notation");
    }

    CIniModel model;
    CIniFile file;

private:
    std::string path_;
};

}  // namespace

/// Section, key, value, the size of a buffer and the content of a file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const CTempDirectory directory;
    CFuzzInput input(data, size);
    const std::string section = input.CText();
    const std::string key = input.CText();
    const std::string value = input.CText();
    const auto bufferSize = static_cast<unsigned int>(input.Number() & 0xFF) + 1;
    const std::string text = input.Rest();
    CPair pair(directory.Write("any.ini", text), text);

    pair.CompareReading(bufferSize, section, key);
    std::vector<std::string> sections = pair.model.Sections();
    sections.resize(std::min<std::size_t>(sections.size(), 8));  // each look reads the file six times
    for (const std::string& other : sections) {
        const std::vector<std::string> keys = pair.model.Keys(other);
        pair.CompareReading(bufferSize, other, keys.empty() ? key : keys.back());
    }
    Expect(pair.file.CopySection(section.c_str(), value.c_str()) == pair.model.Copy(section, value), "sections copy");
    pair.Compare("a copied section is written key by key");
    const auto write = [&pair, &section](const char* name, const char* content, const char* promise) {
        Expect(pair.file.SetString(section.c_str(), name, content) == pair.model.Write(section, name, content),
               "a write is refused for a line break only");
        pair.Compare(promise);
    };
    write(key.c_str(), value.c_str(), "a write changes its own line");
    pair.CompareReading(bufferSize, section, key);
    write(key.c_str(), "-7", "a second write changes its own line");
    write(value.c_str(), key.c_str(), "a new key stands at the section's end");
    write(key.c_str(), nullptr, "a deleted key leaves no line");
    write(nullptr, value.c_str(), "a deleted section goes with its lines");
    pair.CompareReading(bufferSize, section, key);
    return 0;
}
