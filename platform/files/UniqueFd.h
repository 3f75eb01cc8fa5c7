// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>
#include <utility>

#include "platform/Cancellation.h"

/// Owns a file descriptor and closes it. POSIX leaves the descriptor's state open after a failed close, and Linux has
/// always released it by then: close is therefore never repeated.
class CUniqueFd {
public:
    CUniqueFd() = default;
    explicit CUniqueFd(int fd) noexcept : fd_(fd) {}
    CUniqueFd(CUniqueFd&& other) noexcept : fd_(other.Release()) {}
    CUniqueFd& operator=(CUniqueFd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    CUniqueFd(const CUniqueFd&) = delete;
    CUniqueFd& operator=(const CUniqueFd&) = delete;
    ~CUniqueFd() { Reset(); }

    explicit operator bool() const noexcept { return fd_ >= 0; }
    int Get() const noexcept { return fd_; }
    int Release() noexcept { return std::exchange(fd_, kNone); }

    /// Closes the held descriptor and takes `fd` instead.
    /// @return the result of close, 0 when nothing was held.
    int Reset(int fd = kNone) noexcept {
        const CCancellationPause pause;  // close is a place where a thread can be cancelled
        const int old = std::exchange(fd_, fd);
        return old >= 0 ? ::close(old) : 0;
    }

private:
    static constexpr int kNone = -1;
    int fd_ = kNone;
};
