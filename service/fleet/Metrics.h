// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "agent/core/Ledger.h"
#include "service/components/Components.h"

/// What node_exporter's textfile collector reads: the state as Prometheus' text format (each metric with HELP and
/// TYPE).
std::string MetricsText(const CComponents& components, const CLedger& ledger);
