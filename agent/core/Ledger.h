// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ctime>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "agent/core/Command.h"

/// What the agent knows of the events that it has delivered, and of what came of them: the module answers no more than
/// whether anything is pending. Any thread.
class CLedger {
public:
    struct Component {
        std::uint32_t id;
        std::string name;
        std::string designation;
        std::uint32_t status;  // 1 OK, 2 warning, 3 error
        std::time_t since;     // of this status
        std::time_t told;
    };
    struct Alert {
        std::string name;
        std::string designation;
        std::uint32_t status;  // of the component: 1 when it became well while others are not
        std::time_t since;

        /// As it is told: "ok", "warning" or "error".
        const char* Severity() const;
    };
    struct Mails {
        unsigned sent = 0;
        unsigned failed = 0;
        std::time_t last = 0;  // 0 for none
    };

    /// A component's status is about to be delivered.
    void BeginEvent(std::uint32_t id, const std::string& name, const std::string& designation, std::uint32_t status);

    /// The event has been delivered.
    /// @param systemStatus  the overall status that the module was told meanwhile: with 1 it forgets what was pending
    void EndEvent(std::uint32_t systemStatus);

    /// Takes in an event of the module's own: an alert that became pending, or the acknowledgement of all.
    void OnModuleEvent(const Command& event);

    /// Takes in the result of a mail about an event or an update.
    void OnMail(bool sent);

    /// The module was loaded anew: nothing is pending any more.
    void OnRestart();

    std::uint32_t SystemStatus() const;
    std::vector<Component> Components() const;  // in the order in which they were first told of
    std::deque<Alert> Pending() const;          // the oldest first
    Mails MailCounts() const;

private:
    mutable std::mutex lock_;  // guards all below
    std::uint32_t systemStatus_ = 1;
    std::vector<Component> components_;
    std::deque<Alert> pending_;
    Mails mails_;
    std::uint32_t delivering_ = 0;  // the component's id
};
