// SPDX-License-Identifier: Apache-2.0
#include "notification/Rijndael.h"

#include <numeric>

#include "notification/EncryptedString.h"
#include "support/DataRows.h"

TEST(Rijndael, MatchesThePublishedBlocks) {
    unsigned char key[32];
    std::iota(std::begin(key), std::end(key), static_cast<unsigned char>(0));
    for (const auto& row : DataRows(EM_TEST_DATA "/blocks.txt")) {
        const int bits = std::stoi(row[0]);
        unsigned int roundKeys[CRijndael::kMaxRoundKeys];
        std::string text = row[2] + "next";
        auto* const block = reinterpret_cast<unsigned char*>(text.data());
        const int rounds = CRijndael::SetupEncrypt(roundKeys, key, bits);
        CRijndael::Encrypt(roundKeys, rounds, block, block);
        EXPECT_TRUE(text == row[3] + "next" && std::to_string(rounds) == row[1]) << bits;
        EXPECT_EQ(CRijndael::SetupDecrypt(roundKeys, key, bits), rounds);
        CRijndael::Decrypt(roundKeys, rounds, block, block);
        EXPECT_EQ(text, row[2] + "next");
        EXPECT_EQ(CRijndael::SetupEncrypt(roundKeys, key, bits + 1) + CRijndael::SetupEncrypt(roundKeys, key, bits - 1),
                  0);
    }
}

TEST(Rijndael, StoresPasswordsAsOtherProgramsDo) {
    std::string text = "as it was";
    EXPECT_TRUE(!CEncryptedString::TamracDecryptString(text, nullptr) && text == "as it was");
    for (const auto& row : DataRows(EM_TEST_DATA "/passwords.txt")) {
        CRijndael::Encrypt(row[0], text);
        EXPECT_EQ(text, row[1]);
        EXPECT_TRUE(CEncryptedString::TamracDecryptString(text, row[1].c_str()) && text == row[0]) << text;
        CRijndael::Decrypt(row[1], text);  // appends, padding and all
        EXPECT_EQ(text, row[0] + row[0] + std::string((32 - row[0].size()) % 16, '\0'));
    }
    CRijndael::Encrypt(std::string("cut\0off\0", 8), text);
    EXPECT_TRUE(CEncryptedString::TamracDecryptString(text, std::string(text).c_str()) && text == "cut") << text;
    text.clear();
    CRijndael::Decrypt("pJZeM+GR47PXesBhJdRYfaQ=", text);  // a block, and its first byte once more: the rest is its own
    EXPECT_EQ(text, "sixteen letters!sixteen letters!");
}

TEST(Rijndael, Base64StopsAtRubbish) {
    for (const auto& row : DataRows(EM_TEST_DATA "/base64.txt")) {
        EXPECT_EQ(CRijndael::base64_decode(row[0]), row[1]) << row[0];
    }
    const unsigned char bytes[] = {'M', '~', '~'};
    EXPECT_EQ(CRijndael::base64_encode(bytes, 1), "TQ==");  // and nothing of what lies behind
}
