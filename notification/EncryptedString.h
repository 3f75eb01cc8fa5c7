// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/// Stored passwords of the RAID manager and of the notification file.
class CEncryptedString {
public:
    /// Deciphers a stored password.
    /// @param out   the password, up to the first zero byte of the deciphered text (blocks are padded with zeros)
    /// @param text  the stored base64 text; damaged text deciphers to rubbish, not to an error
    /// @return false, with `out` unchanged, only when `text` is null
    static bool TamracDecryptString(std::string& out, const char* text);
};
