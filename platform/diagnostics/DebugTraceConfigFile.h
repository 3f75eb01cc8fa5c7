// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ctime>
#include <string>
#include <sys/types.h>

/// One section of one trace configuration file, held as text.
///
/// The files are plain text: "[" name "]" opens a section, whose text runs to the next "[". The last section must be
/// "EndOfFile" (in any case), which tells a complete file from one that is just being written. Not safe for use by two
/// threads at a time.
class CDebugTraceConfigFile {
public:
    /// Reads the file and keeps the text of one section. Files larger than 1 MiB and anything but regular files count
    /// as unreadable.
    /// @return false when the file is unreadable, incomplete or lacks the section; of an unreadable file only
    ///         the path is kept, while size and time of a readable one are remembered either way.
    bool OpenSectionInIniFile(const char* section, const char* fileName, const char* directory);

    /// Looks a number up in the kept section: the first place where the text `key` occurs (also inside a longer key),
    /// then the next "=". The number is read by strtoul with base 0, so rubbish reads as 0.
    /// @param value  left alone when the key is missing
    bool GetNumberFromIniFile(const char* key, unsigned int& value) const;

    void CloseSectionInIniFile();

    /// How the file on disk compares with the one that was read last.
    enum class Change {
        None,
        Newer,
        Other,  ///< older, or of the same time and another size
        Gone,
    };

    /// What could not be read completely is not remembered, and neither is a file that is gone: both are newer then.
    Change CheckForChange();

private:
    bool ReadCompleteFile(std::string& text);

    std::string path_;
    std::string sectionText_;
    off_t size_{};
    timespec modified_{};
};
