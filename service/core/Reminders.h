#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include "service/components/Components.h"
#include "service/loop/Loop.h"

/// When a component is told again although nothing has changed: because it stays bad, or because no server took its
/// mail.
///
/// Such a mail is sent with the component's next event: that carries all that the mail needs, and tells what is so
/// then. One thread, the loop's.
class CReminders {
public:
    /// @param tellAgain  is called with the component's name
    CReminders(CLoop& loop, std::function<void(const std::string& name)> tellAgain)
        : loop_(loop), tellAgain_(std::move(tellAgain)) {}
    CReminders(const CReminders&) = delete;
    CReminders& operator=(const CReminders&) = delete;

    /// The component has been told.
    /// @param interval  after which it is told again while it is bad; 0: never
    void OnTold(const Component& component, std::chrono::milliseconds interval);

    void Forget(const std::string& name) { plans_.erase(name); }

private:
    struct Plan {
        CLoopSource reminder;
        CLoopSource retry;
        std::size_t lostMails = 0;  // in a row
    };

    CLoop& loop_;
    const std::function<void(const std::string&)> tellAgain_;
    std::map<std::string, Plan> plans_;
};
