// SPDX-License-Identifier: Apache-2.0

// For a program that loads the module and has no stand-in of its own: preloaded into it (LD_PRELOAD), this library
// plays its speaker into the sound file that EM_SPEAKER_WAV names, and tells each tone on standard error.
#include <cstdio>
#include <cstdlib>

#include "agent/speaker/BusIoDriver.h"

namespace {

std::string TakeWavFile() {
    const char* name = std::getenv("EM_SPEAKER_WAV");  // NOLINT(concurrency-mt-unsafe): before main
    std::string file = name != nullptr ? name : "";
    // What the program starts has another speaker: none.
    ::unsetenv("LD_PRELOAD");      // NOLINT(concurrency-mt-unsafe)
    ::unsetenv("EM_SPEAKER_WAV");  // NOLINT(concurrency-mt-unsafe)
    return file;
}

CBusIoDriver speaker({.wavFile = TakeWavFile(), .portLogFile = {}, .onTone = [](const std::string& tone) {
                          std::fprintf(stderr, "speaker: %s\n", tone.c_str());
                      }});

}  // namespace
