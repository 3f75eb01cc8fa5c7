// SPDX-License-Identifier: Apache-2.0
#include "platform/threads/EventTable.h"

#include <algorithm>
#include <new>

#include "platform/threads/EventBlock.h"

std::vector<CEventBlock*>::iterator CEventTable::Position(const char* name) {
    return std::lower_bound(blocks_.begin(), blocks_.end(), name,
                            [](const CEventBlock* block, const char* wanted) { return block->name < wanted; });
}

CEventBlock* CEventTable::Find(const char* name) {
    const CCriticalSectionLock lock(tableLock_);
    const auto position = Position(name);
    return position != blocks_.end() && (*position)->name == name ? *position : nullptr;
}

bool CEventTable::Insert(CEventBlock& block) {
    const CCriticalSectionLock lock(tableLock_);
    try {
        blocks_.insert(Position(block.name.c_str()), &block);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

void CEventTable::Remove(const CEventBlock& block) {
    const CCriticalSectionLock lock(tableLock_);
    const auto position = Position(block.name.c_str());
    if (position != blocks_.end() && *position == &block) {
        blocks_.erase(position);
    }
}
