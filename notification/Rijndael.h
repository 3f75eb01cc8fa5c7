// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// The cipher of stored passwords: AES (FIPS-197) block by block with a key that is the same in every installation, the
/// blocks written in base64. It hides a password from a glance at the file, not from somebody who has this library.
class CRijndael {
public:
    static constexpr int kBlockSize = 16;
    /// Room for the round keys of the longest key, in words: four for each of 14 rounds and four to start with.
    static constexpr int kMaxRoundKeys = 60;

    /// Enciphers a password.
    /// @param out  assigned: the base64 text of the blocks. The last block is filled up with zeros; an empty password
    ///             has no block.
    static void Encrypt(const std::string& plain, std::string& out);

    /// Deciphers a base64 text.
    /// @param out  the deciphered blocks are appended, the zeros of the last one included. A text that is not a whole
    ///             number of blocks ends in a block whose missing bytes are those of the block before.
    static void Decrypt(const std::string& text, std::string& out);

    /// Expand a key of 128, 192 or 256 bits, for enciphering or deciphering.
    /// @param roundKeys  room for `kMaxRoundKeys` words
    /// @return the number of rounds (10, 12 or 14); 0 for any other length, with nothing written
    static int SetupEncrypt(unsigned int* roundKeys, const unsigned char* key, int keyBits);
    static int SetupDecrypt(unsigned int* roundKeys, const unsigned char* key, int keyBits);

    /// Transform one block of 16 bytes; `in` and `out` may be the same.
    static void Encrypt(const unsigned int* roundKeys, int rounds, const unsigned char* in, unsigned char* out);
    static void Decrypt(const unsigned int* roundKeys, int rounds, const unsigned char* in, unsigned char* out);

    /// Standard alphabet, "=" padding, no line breaks.
    static std::string base64_encode(const unsigned char* bytes, unsigned long length);

    /// Stops without an error at the first "=" or the first character outside the alphabet. What is left of a group
    /// then gives the bytes that it holds whole.
    static std::string base64_decode(const std::string& text);
};
