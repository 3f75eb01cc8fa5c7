// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "service/components/Components.h"

/// Tells one Alertmanager (its API v2) of every component that is not OK: at once when a status changes, and again each
/// minute, as it forgets what it is not told again; texts of unchanged statuses wait for that. A thread of its own, so
/// that an outage there delays nothing here. An alert's labels are alertname, instance, component and severity: a
/// change of severity ends one alert and begins another.
class CAlertmanager {
public:
    /// @param url  the base address, such as http://localhost:9093, without a slash at its end
    /// @param instance  the name of this host
    CAlertmanager(std::string url, std::string instance);

    /// A transfer that is under way is broken off.
    ~CAlertmanager();
    CAlertmanager(const CAlertmanager&) = delete;
    CAlertmanager& operator=(const CAlertmanager&) = delete;

    const std::string& Url() const { return url_; }

    /// Any thread.
    void Update(const CComponents& components);

private:
    using Clock = std::chrono::steady_clock;

    struct Alert {
        std::string designation;
        std::string text;
        std::time_t starts;
        std::optional<Clock::time_point> ended;  // nothing: it lasts
    };
    using Key = std::pair<std::string, bool>;  // the component, and whether it is critical

    void Run(const std::stop_token& stop);
    static std::string Times(const Alert& alert);
    std::string Body();
    std::string Post(const std::string& body, const std::stop_token& stop) const;

    const std::string url_;
    const std::string instance_;
    std::mutex lock_;  // guards all below
    std::condition_variable_any changed_;
    std::map<Key, Alert> alerts_;
    bool isNew_ = false;
    std::jthread thread_;  // last: it uses all of the above
};
