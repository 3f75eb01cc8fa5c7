// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

/// A WAV file of square-wave tones: 44.1 kHz, 16 bits, mono. After each tone the header tells what the file holds so
/// far, so a run that is cut short leaves a file that plays. For one thread at a time.
class CWavWriter {
public:
    static constexpr std::uint32_t kSampleRate = 44100;

    /// Replaces the file.
    /// @throws std::system_error that names the file when it cannot be written
    explicit CWavWriter(const std::string& path);

    /// Writes a tone; what lies between two tones is silence, which takes no room on the disk.
    /// @param start  seconds since the beginning of the file, not before the end of the tone before
    /// @param length  seconds
    /// @return false when it cannot be written, or lies beyond the 4 GiB that a WAV file may have; the file then stays
    ///         as long as it was
    bool Tone(double start, double length, double hz);

private:
    struct Close {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };

    bool WriteHeader(std::uint64_t samples);
    bool WriteSamples(std::uint64_t first, std::uint64_t last, double hz);

    std::unique_ptr<std::FILE, Close> file_;
};
