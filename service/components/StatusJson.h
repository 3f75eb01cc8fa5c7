// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "agent/core/Ledger.h"
#include "service/components/Components.h"

/// The forms in which the service tells its state; docs/service.md describes them.
std::string ComponentJson(const Component& component);
std::string StatusJson(const CComponents& components, const CLedger& ledger);
std::string PendingJson(const CComponents& components, const CLedger& ledger);
