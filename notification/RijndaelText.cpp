// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "notification/Rijndael.h"

namespace {

constexpr int kKeyBits = 256;
/// A product constant: other programs of the suite write and read the same files.
constexpr std::string_view kKeyText = "QRmt7D.";
constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<unsigned char, kKeyBits / 8> kKey = [] {
    std::array<unsigned char, kKeyBits / 8> key{};
    std::ranges::copy(kKeyText, key.begin());
    return key;
}();

using Block = std::array<unsigned char, CRijndael::kBlockSize>;

/// Hands the text out in blocks; bytes that the last block lacks keep what the block before left there.
template <typename Transform>
void ForEachBlock(const std::string& text, bool isZeroPadded, Transform transform) {
    Block block{};
    for (std::size_t done = 0; done < text.size(); done += block.size()) {
        if (isZeroPadded) {
            block.fill(0);
        }
        std::memcpy(block.data(), text.data() + done, std::min(block.size(), text.size() - done));
        transform(block);
    }
    ::explicit_bzero(block.data(), block.size());
}

}  // namespace

void CRijndael::Encrypt(const std::string& plain, std::string& out) {
    std::array<unsigned int, kMaxRoundKeys> roundKeys{};
    const int rounds = SetupEncrypt(roundKeys.data(), kKey.data(), kKeyBits);
    std::string bytes;
    ForEachBlock(plain, true, [&](const Block& block) {
        Block enciphered{};
        Encrypt(roundKeys.data(), rounds, block.data(), enciphered.data());
        bytes.append(enciphered.begin(), enciphered.end());
    });
    out = base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

void CRijndael::Decrypt(const std::string& text, std::string& out) {
    std::array<unsigned int, kMaxRoundKeys> roundKeys{};
    const int rounds = SetupDecrypt(roundKeys.data(), kKey.data(), kKeyBits);
    ForEachBlock(base64_decode(text), false, [&](const Block& block) {
        Block plain{};
        Decrypt(roundKeys.data(), rounds, block.data(), plain.data());
        out.append(plain.begin(), plain.end());
        ::explicit_bzero(plain.data(), plain.size());
    });
}

std::string CRijndael::base64_encode(const unsigned char* bytes, unsigned long length) {
    std::string text;
    for (unsigned long i = 0; i < length; i += 3) {
        const unsigned long count = std::min(length - i, 3UL);
        unsigned int group = 0;
        for (unsigned long k = 0; k < 3; ++k) {
            group = group << 8 | (k < count ? bytes[i + k] : 0U);
        }
        for (unsigned long k = 0; k < 4; ++k) {
            text += k <= count ? kAlphabet[group >> (18 - 6 * k) & 0x3F] : '=';
        }
    }
    return text;
}

std::string CRijndael::base64_decode(const std::string& text) {
    std::string bytes;
    unsigned int bits = 0;
    int bitCount = 0;
    for (const char c : text) {
        const std::size_t value = kAlphabet.find(c);
        if (value == std::string_view::npos) {
            break;
        }
        bits = bits << 6 | static_cast<unsigned int>(value);
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            bytes += static_cast<char>(bits >> bitCount & 0xFF);
        }
    }
    return bytes;
}
