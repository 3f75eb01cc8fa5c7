// SPDX-License-Identifier: Apache-2.0
#include <filesystem>

#include "fuzz/Fuzz.h"
#include "platform/diagnostics/DebugTraceConfig.h"

namespace {

class CConfig : public CDebugTraceConfig {
public:
    using CDebugTraceConfig::CDebugTraceConfig;
};

}  // namespace

/// The module's trace file, a section and a key to look for, the file as it is changed later.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const CTempDirectory directory;
    CFuzzInput input(data, size);
    const std::string content = input.Text();
    const std::string section = input.CText();
    const std::string key = input.CText();
    const std::string path = directory.Write("Module.ini", content);
    {
        CConfig config("EM_ALERT");
        config.Initialise(directory.Path().c_str());
        Expect(config.DebugLevel() == 0 || content.find("FileDebugLevel") != std::string::npos,
               "nothing but the file sets the level");
    }
    CDebugTraceConfigFile file;
    const bool isOpen = file.OpenSectionInIniFile(section.c_str(), "Module.ini", directory.Path().c_str());
    Expect(!isOpen || content.find("[" + section + "]") != std::string::npos, "a section that is found is in the file");
    unsigned int number = 77;
    const bool isFound = file.GetNumberFromIniFile(key.c_str(), number);
    Expect(isFound ? isOpen && content.find(key) != std::string::npos : number == 77, "a missing number is left alone");

    directory.Write("Module.ini", input.Rest());
    file.CheckForChange();
    file.OpenSectionInIniFile(section.c_str(), "Module.ini", directory.Path().c_str());
    std::filesystem::remove(path);
    Expect(file.CheckForChange() == CDebugTraceConfigFile::Change::Gone && !file.GetNumberFromIniFile("a", number),
           "nothing is kept of a file that is gone");
    return 0;
}
