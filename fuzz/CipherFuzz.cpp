// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "fuzz/Fuzz.h"
#include "notification/EncryptedString.h"
#include "notification/Rijndael.h"

namespace {

std::string Encode(const std::string& bytes) {
    return CRijndael::base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

void CheckPassword(const std::string& password) {
    std::string stored = "replaced";
    CRijndael::Encrypt(password, stored);
    std::string plain = "kept";
    CRijndael::Decrypt(stored, plain);
    Expect(plain.starts_with("kept" + password), "a password is deciphered as it was enciphered");
    const std::string padding = plain.substr(4 + password.size());
    Expect(padding == std::string(padding.size(), '\0') && padding.size() < CRijndael::kBlockSize,
           "only zeros fill the last block");
    Expect(CEncryptedString::TamracDecryptString(plain, stored.c_str()) &&
               plain == password.substr(0, password.find('\0')),
           "a stored password ends at its first zero");
}

void CheckBlocks(const std::string& bytes) {
    unsigned char key[32] = {};
    std::memcpy(key, bytes.data(), std::min(bytes.size(), sizeof key));
    for (const int bits : {128, 192, 256}) {
        unsigned int roundKeys[CRijndael::kMaxRoundKeys];
        unsigned char block[CRijndael::kBlockSize];
        std::memcpy(block, key, sizeof block);
        const int rounds = CRijndael::SetupEncrypt(roundKeys, key, bits);
        CRijndael::Encrypt(roundKeys, rounds, block, block);
        CRijndael::SetupDecrypt(roundKeys, key, bits);
        CRijndael::Decrypt(roundKeys, rounds, block, block);
        Expect(std::memcmp(block, key, sizeof block) == 0, "deciphering undoes enciphering");
    }
}

}  // namespace

/// Any bytes: a password, a key and a text in base64 at once.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    Expect(CRijndael::base64_decode(Encode(bytes)) == bytes, "base64 is decoded as it was encoded");
    const std::string decoded = CRijndael::base64_decode(bytes);
    Expect(decoded.size() <= bytes.size() / 4 * 3 + 2, "base64 text decodes to three quarters of its length");
    Expect(CRijndael::base64_decode(Encode(decoded)) == decoded, "decoded bytes can be encoded");
    std::string plain;
    CRijndael::Decrypt(bytes, plain);
    Expect(plain.size() % CRijndael::kBlockSize == 0, "whole blocks are deciphered");
    CheckPassword(bytes);
    CheckBlocks(bytes);
    return 0;
}
