// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/core/Ledger.h"
#include "service/components/Components.h"
#include "service/fleet/Alertmanager.h"
#include "service/loop/Loop.h"

/// Those who look from afar: Alertmanagers, and node_exporter through a file. One thread, the loop's.
class CFleet {
public:
    CFleet(CLoop& loop, const CComponents& components, const CLedger& ledger)
        : loop_(loop), components_(components), ledger_(ledger) {}
    ~CFleet() = default;
    CFleet(const CFleet&) = delete;
    CFleet& operator=(const CFleet&) = delete;

    /// Alertmanagers that stay hear of what is over now as well; a metrics file that is another now is removed.
    void Configure(const std::vector<std::string>& alertmanagers, const std::string& metricsFile);

    /// Something has changed: Alertmanagers are told, of a status at once, and half a second later the file.
    void Update();

private:
    void WriteMetrics();

    CLoop& loop_;
    const CComponents& components_;
    const CLedger& ledger_;
    std::vector<std::unique_ptr<CAlertmanager>> alertmanagers_;
    std::string metricsFile_;
    std::string metricsProblem_;  // as it was told
    CLoopSource metricsTimer_;
};
