// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "command/link/ModuleLink.h"

/// Listens to the trace sink while it lives, and keeps what tells of failures and of mails. One object at a time; any
/// thread.
class CTraceRecord {
public:
    CTraceRecord();
    ~CTraceRecord();
    CTraceRecord(const CTraceRecord&) = delete;
    CTraceRecord& operator=(const CTraceRecord&) = delete;
    CTraceRecord(CTraceRecord&&) = delete;
    CTraceRecord& operator=(CTraceRecord&&) = delete;

    /// Forgets what was kept.
    void Clear();
    Traces Get() const;

    /// The number of prints of any kind since the object was made.
    unsigned long Count() const { return count_; }

private:
    void Take(const std::string& print);

    std::atomic<unsigned long> count_{0};
    mutable std::mutex lock_;  // guards all below
    Traces traces_;
};
