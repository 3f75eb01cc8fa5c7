// SPDX-License-Identifier: Apache-2.0
#include "service/fleet/Alertmanager.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>

#include <curl/curl.h>

#include "agent/core/Json.h"
#include "platform/diagnostics/WithoutPassword.h"
#include "service/loop/Journal.h"

namespace {

constexpr std::chrono::seconds kInterval{60};
constexpr std::chrono::seconds kSpread{10};  // by host: a fleet does not call in the same second
constexpr std::chrono::seconds kRetry{5};
constexpr long kLongestTransfer = 10;               // s
constexpr std::chrono::seconds kToldAfterEnd{300};  // for instances that were away
constexpr long kFirstFailure = 300;                 // HTTP status

int MayGoOn(void* stop, curl_off_t /*a*/, curl_off_t /*b*/, curl_off_t /*c*/, curl_off_t /*d*/) {
    return static_cast<const std::stop_token*>(stop)->stop_requested() ? 1 : 0;
}

std::size_t Swallow(char* /*bytes*/, std::size_t size, std::size_t count, void* /*nothing*/) {
    return size * count;
}

}  // namespace

CAlertmanager::CAlertmanager(std::string url, std::string instance)
    : url_(std::move(url)),
      instance_(std::move(instance)),
      thread_([this](const std::stop_token& stop) { Run(stop); }) {}

CAlertmanager::~CAlertmanager() = default;

void CAlertmanager::Update(const CComponents& components) {
    const auto now = Clock::now();
    const std::lock_guard guard(lock_);
    std::map<Key, Alert> next;
    for (const Component& one : components.All()) {
        if (one.IsBad()) {
            next[{one.config.name, one.effective > 2}] = {
                .designation = one.config.designation, .text = one.text, .starts = one.since, .ended = {}};
        }
    }
    for (auto [key, alert] : alerts_) {
        if (!next.contains(key)) {
            alert.ended = alert.ended.value_or(now);
            next[key] = alert;
        }
    }
    const bool isNew = !std::ranges::equal(next, alerts_, [](const auto& one, const auto& other) {
        return one.first == other.first && one.second.starts == other.second.starts &&
               one.second.ended == other.second.ended;
    });
    alerts_ = std::move(next);
    if (isNew) {
        isNew_ = true;
        changed_.notify_all();
    }
}

/// By the clock on the wall as it is now: it may have been set back since, and Alertmanager refuses all alerts of a
/// call when one of them starts in the future, and takes one that ends there for one that lasts.
std::string CAlertmanager::Times(const Alert& alert) {
    std::time_t last = std::time(nullptr);
    if (alert.ended) {
        last -= std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *alert.ended).count();
    }
    return "\"startsAt\":" + JsonTime(std::min(alert.starts, last)) +
           (alert.ended ? ",\"endsAt\":" + JsonTime(last) : "");
}

std::string CAlertmanager::Body() {
    std::erase_if(alerts_, [now = Clock::now()](const auto& one) {
        return one.second.ended && *one.second.ended + kToldAfterEnd <= now;
    });
    std::string body;
    for (const auto& [key, alert] : alerts_) {
        body += std::string(body.empty() ? "" : ",") + R"({"labels":{"alertname":"ComponentStatus","instance":)" +
                JsonString(instance_) + ",\"component\":" + JsonString(key.first) +
                ",\"severity\":" + (key.second ? R"("critical")" : R"("warning")") +
                "},\"annotations\":{\"summary\":" + JsonString(alert.designation) +
                ",\"description\":" + JsonString(alert.text) + "}," + Times(alert) + "}";
    }
    return "[" + body + "]";
}

void CAlertmanager::Run(const std::stop_token& stop) {
    const auto jitter =
        std::chrono::milliseconds(std::hash<std::string>()(instance_) % std::chrono::milliseconds(kSpread).count());
    bool worked = true;
    while (!stop.stop_requested()) {
        std::unique_lock guard(lock_);
        const auto pause = worked ? std::chrono::milliseconds(kInterval - kSpread / 2) + jitter
                                  : std::chrono::milliseconds(kRetry) + jitter / 10;
        changed_.wait_for(guard, stop, pause, [&] { return isNew_ && worked; });
        if (stop.stop_requested()) {
            return;
        }
        isNew_ = false;
        const std::string body = Body();
        guard.unlock();
        if (body == "[]") {
            continue;
        }
        const std::string problem = Post(body, stop);
        if (problem.empty() != worked && !stop.stop_requested()) {
            Journal(worked ? 4 : 5,
                    WithoutPassword(url_) + (worked ? " does not take alerts (" + problem + "); they are sent again"
                                                    : " takes alerts again"));
        }
        worked = problem.empty();
    }
}

/// @return why the alerts were not taken; empty when they were
std::string CAlertmanager::Post(const std::string& body, const std::stop_token& stop) const {
    const std::unique_ptr<CURL, void (*)(CURL*)> curl(::curl_easy_init(), ::curl_easy_cleanup);
    const std::unique_ptr<curl_slist, void (*)(curl_slist*)> headers(
        ::curl_slist_append(nullptr, "Content-Type: application/json"), ::curl_slist_free_all);
    if (curl == nullptr || headers == nullptr) {
        return "no memory";
    }
    ::curl_easy_setopt(curl.get(), CURLOPT_URL, (url_ + "/api/v2/alerts").c_str());
    ::curl_easy_setopt(curl.get(), CURLOPT_PROTOCOLS_STR, "http,https");
    ::curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
    ::curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body.c_str());
    ::curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, kLongestTransfer);
    ::curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    ::curl_easy_setopt(curl.get(), CURLOPT_QUICK_EXIT, 1L);  // waits for no resolver: the loop may wait for this thread
    ::curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, Swallow);
    ::curl_easy_setopt(curl.get(), CURLOPT_NOPROGRESS, 0L);
    ::curl_easy_setopt(curl.get(), CURLOPT_XFERINFOFUNCTION, MayGoOn);
    ::curl_easy_setopt(curl.get(), CURLOPT_XFERINFODATA, &stop);
    if (const CURLcode code = ::curl_easy_perform(curl.get()); code != CURLE_OK) {
        return ::curl_easy_strerror(code);
    }
    long status = 0;
    ::curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
    return status < kFirstFailure ? "" : "its answer is HTTP status " + std::to_string(status);
}
