// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <filesystem>
#include <set>

#include "fuzz/Fuzz.h"

/// Prepares the process; only some harnesses have it.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* count, char*** arguments);

/// Feeds a harness the files of the directories that are named: the kept inputs, in every build and without a fuzzer.
int main(int count, char** arguments) {
    if (LLVMFuzzerInitialize != nullptr) {
        LLVMFuzzerInitialize(&count, &arguments);
    }
    std::set<std::filesystem::path> inputs;
    for (int i = 1; i < count; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
            inputs.insert(entry.path());
        }
    }
    for (const auto& input : inputs) {
        std::printf("%s\n", input.c_str());
        std::fflush(stdout);
        const std::string content = ReadFile(input);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    }
    return inputs.empty() ? 1 : 0;
}
