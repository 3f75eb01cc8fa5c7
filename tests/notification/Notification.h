// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the tests of the notification file share.

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <regex>
#include <set>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>

#include "notification/FileLock.h"
#include "notification/NotificationConfig.h"
#include "platform/files/UniqueFd.h"
#include "support/DataRows.h"
#include "support/PrivateNamespace.h"
#include "support/TraceCapture.h"

/// An owner for files, other than this process where that may give files away.
inline const uid_t kOwner = ::geteuid() == 0 ? 12 : ::geteuid();
