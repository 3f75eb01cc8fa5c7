// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

/// Reads and edits INI files in place, with the semantics of profile functions.
///
/// The file is read anew by every call; nothing is cached or left to flush. Section and key names are matched exactly,
/// case included. Of several sections of one name the first counts, of several keys the first in it. What a file holds
/// is described with CIniText. Directories and files beyond 64 MiB count as unreadable, and so do devices and pipes but
/// for a pipe in which a short text waits.
///
/// Writing keeps the file's identity (inode, links, owner, mode): what follows the changed place is moved in the file.
/// A write that fails (full disk, quota, size limit) leaves the file as it was, and no file where there was none. There
/// is no locking: two writers of one file must agree by other means.
///
/// The static functions may be called on any thread, an object on one thread at a time.
class CIniFile {
public:
    CIniFile() = default;
    explicit CIniFile(const char* path) { SetFilename(path); }

    /// Copies a value, or with a null key the names of all keys of the section, or with a null section the names of all
    /// sections, into `buffer`. A list is its names, each followed by a zero, and a further zero.
    /// @param fallback  the value when the key, section or file is missing; null for none. An existing key without text
    ///                  has an empty value. Lists have no fallback.
    /// @param size  of the buffer in bytes; what does not fit is cut
    /// @return the number of bytes stored, without the last zero; size - 1 for a cut value, size - 2 for a cut list
    static unsigned int GetPrivateProfileString(const char* section, const char* key, const char* fallback,
                                                char* buffer, unsigned int size, const char* path);

    /// Writes key "=" value in its section. A known key's line is replaced (and when it is the section's first, an
    /// empty line comes in front); a new key is added at the section's end; a missing section is added at the file's
    /// end; a missing file is created with mode 0644.
    ///
    /// What is written is read back with the rules of the file: a value is cut at ";" and loses blanks at its ends.
    /// @param key  null deletes the section
    /// @param value  null deletes the key. Deleting what does not exist succeeds and changes nothing.
    /// @return false for a null section or path, for a text with a line break, and when the file cannot be written
    static bool WritePrivateProfileString(const char* section, const char* key, const char* value, const char* path);

    void SetFilename(const char* path) { path_ = path == nullptr ? "" : path; }
    const char* GetFileName() const { return path_.c_str(); }

    /// @param mustBeReadable  false marks the object open without a look at the file
    bool Open(bool mustBeReadable);
    bool Open(const char* path, bool mustBeReadable);
    bool IsOpen() const { return open_; }
    void Close() { open_ = false; }
    /// Every write is in the file already.
    bool Flush() const { return open_; }

    /// GetPrivateProfileString with as much room as it takes, up to 64 KiB.
    /// @return false when `value` came out empty
    bool GetString(std::string& value, const char* section, const char* key, const char* fallback) const;

    /// Reads a value that is a list: ";" separates its items, and only one behind a blank, or before any item, starts a
    /// comment.
    /// @return false when `list` came out empty
    bool GetListString(std::string& list, const char* section, const char* key) const;

    /// Reads up to 31 digits in C's notation (010 is 8, 0x10 is 16). What does not begin with a number is 0; of numbers
    /// that need more than 32 bits the low ones are taken.
    unsigned int GetNumber(const char* section, const char* key, unsigned int fallback) const;

    bool SetString(const char* section, const char* key, const char* value);
    bool SetNumber(const char* section, const char* key, unsigned int value);
    bool SetNumber(const char* section, const char* key, int value);
    bool DeleteSection(const char* section);
    bool DeleteKey(const char* section, const char* key);

    /// Writes every key of one section into another, whose other keys stay.
    /// @return false when a write failed, `from` has no keys, or its key names need more than 64 KiB; or for null
    bool CopySection(const char* from, const char* to);

    /// Starts an enumeration of a section's key names and returns the first.
    /// @return false when there is none
    bool GetEnum(std::string& key, const char* section);
    bool GetNextEnum(std::string& key);

    /// @return false when there are none, or more than 64 KiB of them: `names` then holds the first ones
    bool GetEnums(std::vector<std::string>& keys, const char* section);
    bool GetSections(std::vector<std::string>& sections);

private:
    bool ReadNames(const char* section);
    bool CollectNames(std::vector<std::string>& names, bool complete);

    std::string path_;
    bool open_ = false;
    std::vector<char> names_;  // of the running enumeration, a list as GetPrivateProfileString stores it
    std::size_t nextName_ = 0;
};
