// SPDX-License-Identifier: Apache-2.0
#include "xml/FileAttributes.h"

#include <cerrno>
#include <linux/limits.h>
#include <string_view>
#include <sys/xattr.h>

namespace {

constexpr char kAccessList[] = "system.posix_acl_access";
/// Made by the kernel from what a file holds.
constexpr std::string_view kSignatures[] = {"security.evm", "security.ima"};

bool IsSignature(std::string_view name) {
    return name == kSignatures[0] || name == kSignatures[1];
}

/// @return 0 also when the old file has lost it meanwhile
int CopyAttribute(const std::string& from, int to, const char* name) {
    std::string wanted(XATTR_SIZE_MAX, '\0');
    const ssize_t size = ::getxattr(from.c_str(), name, wanted.data(), wanted.size());
    if (size == -1) {
        return errno == ENODATA ? 0 : errno;
    }
    wanted.resize(static_cast<std::size_t>(size));
    // A label that the kernel gives every new file here may not be ours to set.
    std::string present(XATTR_SIZE_MAX, '\0');
    const ssize_t presentSize = ::fgetxattr(to, name, present.data(), present.size());
    const bool isThere = presentSize == size && present.starts_with(wanted);
    return isThere || ::fsetxattr(to, name, wanted.data(), wanted.size(), 0) == 0 ? 0 : errno;
}

int RemoveAccessList(int file) {
    const bool isGone = ::fremovexattr(file, kAccessList) == 0 || errno == ENODATA || errno == ENOTSUP;
    return isGone ? 0 : errno;
}

}  // namespace

int CopyFileAttributes(const std::string& from, int to) {
    std::string names(XATTR_LIST_MAX, '\0');
    const ssize_t size = ::listxattr(from.c_str(), names.data(), names.size());
    if (size < 0 && errno != ENOTSUP) {
        return errno;
    }
    bool hasAccessList = false;
    for (ssize_t at = 0; at < size;) {
        const char* const name = names.data() + at;
        const int error = IsSignature(name) ? 0 : CopyAttribute(from, to, name);
        if (error != 0) {
            return error;
        }
        hasAccessList = hasAccessList || std::string_view(name) == kAccessList;
        at += static_cast<ssize_t>(std::string_view(name).size()) + 1;
    }
    return hasAccessList ? 0 : RemoveAccessList(to);
}
