// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <thread>

#include "service/components/Components.h"
#include "service/core/Delivery.h"
#include "service/core/MailRetries.h"
#include "service/core/ModuleThread.h"
#include "service/core/StateStore.h"
#include "service/loop/Inbox.h"

/// What the module is told of components, and what came of it: the state is kept before an event goes out and when it
/// has been dealt with, so that one that a sudden end swallows is told by the next run. The next event waits until that
/// is kept: no end repeats more than the one mail that was under way. One thread, the loop's, unless stated.
class CAnnouncer {
public:
    /// Why a component's status is delivered.
    enum class Telling {
        News,
        Reminder,   // that nobody has acknowledged it; dropped when somebody does while it waits, and not kept as due
        Relisting,  // its mail went out in an earlier run
    };

    /// @param onTold  is called when the module has dealt with an event
    CAnnouncer(CLoop& loop, CInbox& inbox, CComponents& components, CStateStore& store, CLedger& ledger,
               CDelivery& delivery, std::function<void()> onTold);
    ~CAnnouncer() = default;
    CAnnouncer(const CAnnouncer&) = delete;
    CAnnouncer& operator=(const CAnnouncer&) = delete;

    /// @param module  lives as long as anything is told; null: from here on nothing is, and what waits is for the next
    /// run
    void Use(CModuleThread* module) {
        module_ = module;
        isStopping_ = module == nullptr;
    }

    /// A component whose alert stays pending is told again after this time; 0: never. When it is another than before,
    /// it begins now for those that are pending.
    void SetReminder(std::chrono::milliseconds interval);

    void Tell(Component& component, Telling telling);

    /// A status has settled. Its mail has all its tries, whatever became of the last one's.
    void TellNews(Component& component);

    /// The number of updates that the component knows of is new.
    void TellUpdates(Component& component);

    /// A component that is no longer watched: it is well from now on, which is told if something else was, and tried
    /// until a server takes the mail.
    void TellOver(const Component& gone);

    /// A component that is watched again takes over the mail that is due about its end.
    void TakeBack(Component& component);

    /// The module has sent a mail. Any thread; what was not sent by the one that delivers an event is no mail about it.
    /// @param isTaken  by a server
    void OnMail(bool isTaken);

    /// Notes of each component whether an alert of it is pending.
    void MarkPending();

private:
    struct Event {
        std::function<void(CAgent&)> deliver;
        std::function<void(bool isMailLost)> onTold;
        std::function<bool()> isWanted{};  // still, when its turn comes; none: always
    };

    void Post(const std::string& subject, Event event);
    void DeliverNext();
    void Deliver(CAgent& agent, const Event& event);
    void DeliverOver(const std::string& name);
    void OnOverTold(const std::string& name, bool isMailLost);
    void OnTold(const ComponentEvent& event, Telling telling, bool isMailLost);
    void OnUpdatesTold(const std::string& name, std::uint32_t updates, bool isMailLost);
    void Remind(const Component& component);
    void TellAgain(const std::string& subject);

    CLoop& loop_;
    CInbox& inbox_;
    CComponents& components_;
    CStateStore& store_;
    CLedger& ledger_;
    CDelivery& delivery_;
    const std::function<void()> onTold_;
    CModuleThread* module_ = nullptr;
    std::chrono::milliseconds reminder_{0};
    std::map<std::string, CLoopSource> reminders_;
    CMailRetries retries_;
    std::map<std::string, Component> over_;  // no longer watched, and not told for sure
    std::deque<Event> waiting_;
    bool isUnderWay_ = false;  // an event is with the module, or what came of it is not kept yet
    std::atomic<std::thread::id> deliverer_{};
    std::atomic<bool> isMailLost_{false};  // during the delivery that is under way
    std::atomic<bool> isMailTaken_{false};
    std::atomic<bool> isStopping_{false};  // the module may ignore what it gets
};
