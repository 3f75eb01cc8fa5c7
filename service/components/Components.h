// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <ctime>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/components/CheckResult.h"
#include "service/config/ServiceConfig.h"

/// A component and what is known of it. Times of day are for people; nothing is decided by them.
struct Component {
    CheckConfig config;
    std::uint32_t id = 0;                               ///< the object id of its events, as long as the service runs
    ComponentStatus status = ComponentStatus::Unknown;  ///< settled, and told
    std::uint32_t effective = 1;                        ///< what it counted as then, 1 to 3; OK before the first result
    std::string text;                                   ///< of the newest result
    std::time_t since = 0;                              ///< of the settled status
    std::time_t checked = 0;                            ///< 0: never
    std::chrono::duration<double> took{0};              ///< by the newest check
    std::time_t next = 0;                               ///< of the next check; 0: nobody knows
    std::uint32_t badInRow = 0;                         ///< results that are not told yet
    bool isPending = false;                             ///< an alert of it waits for an acknowledgement
    bool isRestored = false;                            ///< as an earlier run left it; no result has come yet
    bool isRelisting = false;                           ///< its alert of an earlier run is being listed again
    bool isReported = false;                            ///< no configuration names it: it came with a report
    bool isMailDue = false;                             ///< no server took the mail about the status
    std::uint32_t untold = 0;                           ///< its events, with mail, that wait or are with the module
    std::optional<std::uint32_t> updates;               ///< of an update check
    bool isUpdateDue = false;                           ///< it is not told for sure, or no server took the mail

    bool IsBad() const;
};

/// What a status counts as in events, 1 to 3. That of unknown is configured, and may be another after a reload.
std::uint32_t EffectiveOf(ComponentStatus status, const CheckConfig& config);

/// What follows from a result.
enum class Consequence {
    None,
    Settled,  ///< the status has changed, and is to be told
    Again,    ///< still bad, as an earlier run of the service told: to be listed, but not mailed again
};

/// All components; decides when a status has settled: a bad one after the configured number of bad results in a row, a
/// good one, and one that is worse than what was told, at once. One thread.
class CComponents {
public:
    /// Components keep what is known of them when the configuration changes; those that it named and now lacks go.
    /// @return those that have gone
    std::vector<Component> Configure(const std::vector<CheckConfig>& checks);

    Component* Find(std::string_view name);
    const Component* Find(std::string_view name) const;

    /// The component, made if it is not known yet.
    /// @return null when there are too many (1,000) that no configuration names
    Component* FindOrMake(const std::string& name);

    static Consequence Take(Component& component, const CheckResult& result);

    /// The worst of all.
    std::uint32_t SystemStatus() const;

    std::deque<Component>& All() { return components_; }
    const std::deque<Component>& All() const { return components_; }

private:
    std::deque<Component> components_;  // addresses stay when one is added
    std::uint32_t lastId_ = 0;
};
