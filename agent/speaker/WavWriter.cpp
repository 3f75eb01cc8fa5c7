// SPDX-License-Identifier: Apache-2.0
#include "agent/speaker/WavWriter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <system_error>

namespace {

constexpr std::int16_t kLoudness = 8000;
constexpr std::uint64_t kSampleBytes = sizeof(std::int16_t);

/// The 44 bytes in front of the samples; all numbers are little-endian, as on every machine with this speaker.
struct Header {
    char riff[4] = {'R', 'I', 'F', 'F'};
    std::uint32_t restBytes = 0;  // of the file, from here on
    char wave[8] = {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '};
    std::uint32_t formatBytes = 16;
    std::uint16_t format = 1;  // PCM
    std::uint16_t channels = 1;
    std::uint32_t sampleRate = CWavWriter::kSampleRate;
    std::uint32_t bytesPerSecond = CWavWriter::kSampleRate * kSampleBytes;
    std::uint16_t frameBytes = kSampleBytes;
    std::uint16_t sampleBits = 16;
    char data[4] = {'d', 'a', 't', 'a'};
    std::uint32_t dataBytes = 0;
};
static_assert(sizeof(Header) == 44);

constexpr std::uint64_t kMaxSamples = (UINT32_MAX - sizeof(Header)) / kSampleBytes;

}  // namespace

CWavWriter::CWavWriter(const std::string& path) : file_(std::fopen(path.c_str(), "wbe")) {
    if (file_ == nullptr || !WriteHeader(0)) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

bool CWavWriter::Tone(double start, double length, double hz) {
    const double first = std::round(start * kSampleRate);
    const double last = std::round((start + length) * kSampleRate);
    if (!(first >= 0 && last >= first && last <= static_cast<double>(kMaxSamples))) {
        return false;
    }
    const auto end = static_cast<std::uint64_t>(last);
    return WriteSamples(static_cast<std::uint64_t>(first), end, hz) && WriteHeader(end);
}

bool CWavWriter::WriteHeader(std::uint64_t samples) {
    Header header;
    header.dataBytes = static_cast<std::uint32_t>(samples * kSampleBytes);
    header.restBytes = header.dataBytes + static_cast<std::uint32_t>(sizeof header - offsetof(Header, wave));
    return ::fseeko(file_.get(), 0, SEEK_SET) == 0 && std::fwrite(&header, sizeof header, 1, file_.get()) == 1 &&
           std::fflush(file_.get()) == 0;
}

bool CWavWriter::WriteSamples(std::uint64_t first, std::uint64_t last, double hz) {
    if (::fseeko(file_.get(), static_cast<off_t>(sizeof(Header) + first * kSampleBytes), SEEK_SET) != 0) {
        return false;
    }
    std::array<std::int16_t, 4096> chunk{};
    for (std::uint64_t at = first; at < last;) {
        const std::size_t count = std::min<std::uint64_t>(chunk.size(), last - at);
        for (std::size_t i = 0; i < count; ++i) {
            const double periods = static_cast<double>(at - first + i) * hz / kSampleRate;
            const bool high = periods - std::floor(periods) < 0.5;
            chunk[i] = static_cast<std::int16_t>(high ? kLoudness : -kLoudness);
        }
        if (std::fwrite(chunk.data(), kSampleBytes, count, file_.get()) != count) {
            return false;
        }
        at += count;
    }
    return std::fflush(file_.get()) == 0;
}
