// SPDX-License-Identifier: Apache-2.0
#include "service/fleet/Fleet.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <exception>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "agent/core/Files.h"
#include "agent/core/Json.h"
#include "service/fleet/Metrics.h"
#include "service/loop/Journal.h"

namespace {

constexpr std::chrono::milliseconds kMetricsDelay{500};  // several results make one file
constexpr mode_t kReadableByAll = 0644;

std::string Reason(const std::string& path) {
    return path + ": " + std::generic_category().message(errno);
}

// One that is made here would be open to this service alone.
void RequireFolder(const std::string& file) {
    struct stat status {};
    if (::stat((std::filesystem::path(file).parent_path() / ".").c_str(), &status) != 0) {
        throw CAgentError("cannot write " + Reason(file));
    }
}

// What it tells would seem to hold for ever.
void Remove(const std::string& file) {
    if (!file.empty() && ::unlink(file.c_str()) != 0 && ::access(file.c_str(), F_OK) == 0) {
        Journal(4, "cannot remove " + Reason(file));
    }
}

}  // namespace

void CFleet::Configure(const std::vector<std::string>& alertmanagers, const std::string& metricsFile) {
    std::array<char, HOST_NAME_MAX + 1> host{};
    ::gethostname(host.data(), host.size() - 1);
    std::vector<std::unique_ptr<CAlertmanager>> next;
    for (std::string url : alertmanagers) {
        url.resize(url.find_last_not_of('/') + 1);
        const auto known =
            std::ranges::find_if(alertmanagers_, [&](const auto& one) { return one != nullptr && one->Url() == url; });
        next.push_back(known != alertmanagers_.end() ? std::move(*known)
                                                     : std::make_unique<CAlertmanager>(url, host.data()));
    }
    alertmanagers_ = std::move(next);
    metricsTimer_ = {};  // was for the file of before, which may be none now
    if (const std::string before = std::exchange(metricsFile_, metricsFile); before != metricsFile) {
        metricsProblem_.clear();
        Remove(before);
    }
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
    std::string problem;
    try {
        RequireFolder(metricsFile_);
        ReplaceFile(metricsFile_, MetricsText(components_, ledger_), kReadableByAll);
    } catch (const std::exception& error) {
        problem = error.what();
    }
    if (std::exchange(metricsProblem_, problem) != problem) {  // once, not with each result
        Journal(problem.empty() ? 5 : 4, problem.empty() ? metricsFile_ + " is written again" : problem);
    }
}
