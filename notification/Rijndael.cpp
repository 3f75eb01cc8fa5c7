// SPDX-License-Identifier: Apache-2.0
#include "notification/Rijndael.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

// Rounds as table look-ups (FIPS-197 with SubBytes, ShiftRows and MixColumns merged): the words of a state are its
// columns, the first byte in the highest place. The tables are computed by the compiler from the field arithmetic.

namespace {

using Sbox = std::array<std::uint8_t, 256>;
using RoundTables = std::array<std::array<std::uint32_t, 256>, 4>;
using State = std::array<std::uint32_t, 4>;

constexpr std::uint8_t Double(std::uint8_t a) {
    return static_cast<std::uint8_t>(a << 1 ^ (a & 0x80 ? 0x1B : 0));
}

constexpr std::uint8_t Multiply(std::uint8_t a, std::uint8_t b) {
    std::uint8_t product = 0;
    for (; b != 0; b >>= 1, a = Double(a)) {
        product ^= b & 1 ? a : 0;
    }
    return product;
}

/// Walks through the field with a generator and its inverse, so that each element meets its reciprocal.
constexpr Sbox MakeSbox() {
    Sbox sbox{};
    std::uint8_t element = 1;
    std::uint8_t inverse = 1;
    do {
        element = Multiply(element, 0x03);
        inverse = Multiply(inverse, 0xF6);
        std::uint8_t value = 0x63;
        for (int shift = 0; shift < 5; ++shift) {
            value ^= static_cast<std::uint8_t>(inverse << shift | inverse >> (8 - shift));
        }
        sbox[element] = value;
    } while (element != 1);
    sbox[0] = 0x63;
    return sbox;
}

constexpr Sbox Invert(const Sbox& sbox) {
    Sbox inverse{};
    for (unsigned int i = 0; i < sbox.size(); ++i) {
        inverse[sbox[i]] = static_cast<std::uint8_t>(i);
    }
    return inverse;
}

/// @param column  what MixColumns (or its inverse) makes of a column that holds 1 in its first row
constexpr RoundTables MakeTables(const Sbox& sbox, const std::array<std::uint8_t, 4>& column) {
    RoundTables tables{};
    for (unsigned int i = 0; i < 256; ++i) {
        for (unsigned int row = 0; row < 4; ++row) {
            for (unsigned int k = 0; k < 4; ++k) {
                tables[row][i] = tables[row][i] << 8 | Multiply(sbox[i], column[(k - row) % 4]);
            }
        }
    }
    return tables;
}

constexpr Sbox kSbox = MakeSbox();
constexpr Sbox kInverseSbox = Invert(kSbox);
constexpr RoundTables kEncryptTables = MakeTables(kSbox, {0x02, 0x01, 0x01, 0x03});
constexpr RoundTables kDecryptTables = MakeTables(kInverseSbox, {0x0E, 0x09, 0x0D, 0x0B});

constexpr std::uint32_t Byte(std::uint32_t word, unsigned int index) {
    return word >> (24 - 8 * index) & 0xFF;
}

constexpr std::uint32_t Substitute(const Sbox& sbox, std::uint32_t b0, std::uint32_t b1, std::uint32_t b2,
                                   std::uint32_t b3) {
    return static_cast<std::uint32_t>(sbox[b0]) << 24 | static_cast<std::uint32_t>(sbox[b1]) << 16 |
           static_cast<std::uint32_t>(sbox[b2]) << 8 | sbox[b3];
}

std::uint32_t ReadWord(const unsigned char* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
           static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

/// @param step  by how many columns ShiftRows moves a row against the one above it: 1, or 3 for the inverse
void TransformBlock(const unsigned int* roundKeys, int rounds, const unsigned char* in, unsigned char* out,
                    const RoundTables& tables, const Sbox& sbox, unsigned int step) {
    State state{};
    for (std::size_t i = 0; i < 4; ++i) {
        state[i] = ReadWord(in + 4 * i) ^ roundKeys[i];
    }
    for (int round = 1; round < rounds; ++round) {
        roundKeys += 4;
        State next{};
        for (unsigned int i = 0; i < 4; ++i) {
            next[i] = tables[0][Byte(state[i], 0)] ^ tables[1][Byte(state[(i + step) % 4], 1)] ^
                      tables[2][Byte(state[(i + 2) % 4], 2)] ^ tables[3][Byte(state[(i + 3 * step) % 4], 3)] ^
                      roundKeys[i];
        }
        state = next;
    }
    roundKeys += 4;
    for (unsigned int i = 0; i < 4; ++i) {
        const std::uint32_t word = Substitute(sbox, Byte(state[i], 0), Byte(state[(i + step) % 4], 1),
                                              Byte(state[(i + 2) % 4], 2), Byte(state[(i + 3 * step) % 4], 3)) ^
                                   roundKeys[i];
        for (unsigned int k = 0; k < 4; ++k) {
            out[4 * i + k] = static_cast<unsigned char>(Byte(word, k));
        }
    }
}

}  // namespace

int CRijndael::SetupEncrypt(unsigned int* roundKeys, const unsigned char* key, int keyBits) {
    if (keyBits != 128 && keyBits != 192 && keyBits != 256) {
        return 0;
    }
    const int keyWords = keyBits / 32;
    const int rounds = keyWords + 6;
    for (int i = 0; i < keyWords; ++i) {
        roundKeys[i] = ReadWord(key + 4 * static_cast<std::size_t>(i));
    }
    std::uint8_t roundConstant = 1;
    for (int i = keyWords; i < 4 * (rounds + 1); ++i) {
        std::uint32_t word = roundKeys[i - 1];
        if (i % keyWords == 0) {
            word = Substitute(kSbox, Byte(word, 1), Byte(word, 2), Byte(word, 3), Byte(word, 0)) ^
                   static_cast<std::uint32_t>(roundConstant) << 24;
            roundConstant = Double(roundConstant);
        } else if (keyWords > 6 && i % keyWords == 4) {
            word = Substitute(kSbox, Byte(word, 0), Byte(word, 1), Byte(word, 2), Byte(word, 3));
        }
        roundKeys[i] = roundKeys[i - keyWords] ^ word;
    }
    return rounds;
}

int CRijndael::SetupDecrypt(unsigned int* roundKeys, const unsigned char* key, int keyBits) {
    const int rounds = SetupEncrypt(roundKeys, key, keyBits);
    // The rounds in reverse order, each key but the outer two through the inverse MixColumns.
    for (int first = 0, last = 4 * rounds; first < last; first += 4, last -= 4) {
        for (int k = 0; k < 4; ++k) {
            std::swap(roundKeys[first + k], roundKeys[last + k]);
        }
    }
    for (int i = 4; i < 4 * rounds; ++i) {
        const std::uint32_t word = roundKeys[i];
        roundKeys[i] = kDecryptTables[0][kSbox[Byte(word, 0)]] ^ kDecryptTables[1][kSbox[Byte(word, 1)]] ^
                       kDecryptTables[2][kSbox[Byte(word, 2)]] ^ kDecryptTables[3][kSbox[Byte(word, 3)]];
    }
    return rounds;
}

void CRijndael::Encrypt(const unsigned int* roundKeys, int rounds, const unsigned char* in, unsigned char* out) {
    TransformBlock(roundKeys, rounds, in, out, kEncryptTables, kSbox, 1);
}

void CRijndael::Decrypt(const unsigned int* roundKeys, int rounds, const unsigned char* in, unsigned char* out) {
    TransformBlock(roundKeys, rounds, in, out, kDecryptTables, kInverseSbox, 3);
}
