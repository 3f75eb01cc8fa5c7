// SPDX-License-Identifier: Apache-2.0
#include "service/fleet/Fleet.h"

#include <array>
#include <climits>
#include <unistd.h>

#include "agent/core/Files.h"
#include "agent/core/Json.h"
#include "service/fleet/Metrics.h"
#include "service/loop/Journal.h"

namespace {

constexpr std::chrono::milliseconds kMetricsDelay{500};  // several results make one file
constexpr mode_t kReadableByAll = 0644;

}  // namespace

void CFleet::Configure(const std::vector<std::string>& alertmanagers, const std::string& metricsFile) {
    std::array<char, HOST_NAME_MAX + 1> host{};
    ::gethostname(host.data(), host.size() - 1);
    alertmanagers_.clear();
    for (const std::string& url : alertmanagers) {
        alertmanagers_.push_back(std::make_unique<CAlertmanager>(url, host.data()));
    }
    metricsFile_ = metricsFile;
    Update();
}

void CFleet::Update() {
    for (const auto& alertmanager : alertmanagers_) {
        alertmanager->Update(components_);
    }
    if (!metricsFile_.empty() && !metricsTimer_.IsSet()) {
        metricsTimer_ = loop_.After(kMetricsDelay, [this] {
            metricsTimer_ = {};
            WriteMetrics();
        });
    }
}

void CFleet::WriteMetrics() {
    try {
        ReplaceFile(metricsFile_, MetricsText(components_, ledger_), kReadableByAll);
    } catch (const CAgentError& error) {
        Journal(4, error.what());
    }
}
