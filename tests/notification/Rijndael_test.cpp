#include "notification/Rijndael.h"

#include <numeric>

#include <gtest/gtest.h>

#include "notification/EncryptedString.h"

TEST(Rijndael, MatchesThePublishedBlocks) {  // FIPS-197, appendix C
    unsigned char key[32];
    std::iota(std::begin(key), std::end(key), static_cast<unsigned char>(0));
    const std::string plain("\x00\x11\x22\x33\x44\x55\x66\x77\x88\x99\xAA\xBB\xCC\xDD\xEE\xFF", 16);
    const struct {
        int bits;
        int rounds;
        const char* enciphered;
    } cases[] = {{128, 10, "\x69\xC4\xE0\xD8\x6A\x7B\x04\x30\xD8\xCD\xB7\x80\x70\xB4\xC5\x5A"},
                 {192, 12, "\xDD\xA9\x7C\xA4\x86\x4C\xDF\xE0\x6E\xAF\x70\xA0\xEC\x0D\x71\x91"},
                 {256, 14, "\x8E\xA2\xB7\xCA\x51\x67\x45\xBF\xEA\xFC\x49\x90\x4B\x49\x60\x89"}};
    for (const auto& [bits, rounds, enciphered] : cases) {
        unsigned int roundKeys[CRijndael::kMaxRoundKeys];
        std::string text = plain;
        auto* const block = reinterpret_cast<unsigned char*>(text.data());
        EXPECT_EQ(CRijndael::SetupEncrypt(roundKeys, key, bits), rounds);
        CRijndael::Encrypt(roundKeys, rounds, block, block);
        EXPECT_EQ(text, enciphered);
        EXPECT_EQ(CRijndael::SetupDecrypt(roundKeys, key, bits), rounds);
        CRijndael::Decrypt(roundKeys, rounds, block, block);
        EXPECT_EQ(text, plain);
    }
}

TEST(Rijndael, StoresPasswordsAsOtherProgramsDo) {
    const struct {
        std::string plain;
        std::string stored;  // openssl enc -aes-256-ecb -nopad with the product key, zero-padded, base64
    } cases[] = {{"", ""},
                 {"secret", "f8s6mivZg++FTemrYkCdMg=="},
                 {"sixteen letters!", "pJZeM+GR47PXesBhJdRYfQ=="},
                 {"seventeen letters", "tVme7pr4pQmzef7O1Inlne1yWfGa7jTu+40VgULHung="}};
    std::string text;
    EXPECT_FALSE(CEncryptedString::TamracDecryptString(text, nullptr));
    for (const auto& [plain, stored] : cases) {
        CRijndael::Encrypt(plain, text);
        EXPECT_EQ(text, stored);
        EXPECT_TRUE(CEncryptedString::TamracDecryptString(text, stored.c_str()));
        EXPECT_EQ(text, plain);
        CRijndael::Decrypt(stored, text);  // appends, padding and all
        EXPECT_EQ(text, plain + plain + std::string((32 - plain.size()) % 16, '\0'));
    }
}

TEST(Rijndael, AShortBlockIsFilledFromTheOneBefore) {
    std::string text;
    CRijndael::Decrypt("pJZeM+GR47PXesBhJdRYfaQ=", text);  // the first block, and its first byte once more
    EXPECT_EQ(text, "sixteen letters!sixteen letters!");
}

TEST(Rijndael, Base64StopsAtRubbish) {
    const char* const cases[][2] = {{"Zg==", "f"},    {"Zm8=", "fo"},        {"Zm9v", "foo"}, {"Zm9vYg", "foob"},
                                    {"Zm9vY", "foo"}, {"Zm9v\nYmFy", "foo"}, {"Z=m9v", ""},   {"Zm-9v", "f"}};
    for (const auto& [text, bytes] : cases) {
        EXPECT_EQ(CRijndael::base64_decode(text), bytes) << text;
    }
}
