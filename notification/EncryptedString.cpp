// SPDX-License-Identifier: Apache-2.0
#include "notification/EncryptedString.h"

#include <cstring>

#include "notification/Rijndael.h"

bool CEncryptedString::TamracDecryptString(std::string& out, const char* text) {
    if (text == nullptr) {
        return false;
    }
    std::string plain;
    CRijndael::Decrypt(text, plain);
    out.assign(plain, 0, plain.find('\0'));
    ::explicit_bzero(plain.data(), plain.size());
    return true;
}
