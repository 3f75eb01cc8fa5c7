// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "platform/threads/CriticalSection.h"

struct CEventBlock;

/// The named events of the process, for CEvent alone. Locks are taken in this order: the event lock, the lock of the
/// table, the mutex of one event.
class CEventTable {
public:
    /// @return null when no event has the name
    CEventBlock* Find(const char* name) EM_REQUIRES(eventLock);

    /// @return false when memory is missing
    bool Insert(CEventBlock& block) EM_REQUIRES(eventLock);

    /// A block that is not in the table is left alone.
    void Remove(const CEventBlock& block) EM_REQUIRES(eventLock);

    /// Guards the reference counts of all events, named or not.
    CCriticalSection eventLock;

private:
    /// Where the name stands, or would stand.
    std::vector<CEventBlock*>::iterator Position(const char* name) EM_REQUIRES(tableLock_);

    CCriticalSection tableLock_;
    std::vector<CEventBlock*> blocks_ EM_GUARDED_BY(tableLock_);  // sorted by name, each name once
};
