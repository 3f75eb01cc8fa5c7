// SPDX-License-Identifier: Apache-2.0
#include "service/core/Announcer.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "service/loop/Journal.h"

namespace {

constexpr std::uint32_t kOk = 1;
constexpr std::size_t kMostWaiting = 10000;
constexpr std::string_view kUpdates = "/updates";  // behind a component's name, which has no "/": what a mail was about

bool IsListed(const std::deque<CLedger::Alert>& pending, const std::string& name) {
    return std::ranges::find(pending, name, &CLedger::Alert::name) != pending.end();
}

}  // namespace

CAnnouncer::CAnnouncer(CLoop& loop, CInbox& inbox, CComponents& components, CStateStore& store, CLedger& ledger,
                       CDelivery& delivery, std::function<void()> onTold)
    : loop_(loop),
      inbox_(inbox),
      components_(components),
      store_(store),
      ledger_(ledger),
      delivery_(delivery),
      onTold_(std::move(onTold)),
      retries_(loop, [this](const std::string& subject) { TellAgain(subject); }) {}

void CAnnouncer::Post(const std::string& subject, Event event) {
    if (waiting_.size() >= kMostWaiting) {
        Journal(3, subject + ": too many events wait for the module; this one is told after a restart");
        return;
    }
    waiting_.push_back(std::move(event));
    if (!isUnderWay_) {
        DeliverNext();
    }
}

void CAnnouncer::DeliverNext() {
    isUnderWay_ = module_ != nullptr && !waiting_.empty();
    if (isUnderWay_) {
        module_->Post([this, event = std::move(waiting_.front())](CAgent& agent) { Deliver(agent, event); });
        waiting_.pop_front();
    }
}

/// On the module's thread.
void CAnnouncer::Deliver(CAgent& agent, const Event& event) {
    bool isWanted = true;
    isMailLost_ = false;
    isMailTaken_ = false;
    deliverer_ = std::this_thread::get_id();
    try {
        isWanted = !event.isWanted || event.isWanted();
        if (isWanted) {
            event.deliver(agent);
        }
    } catch (const std::exception& error) {
        Journal(3, error.what());
        isMailLost_ = true;
    }
    deliverer_ = std::thread::id();
    if (isStopping_ && !isMailTaken_) {
        return;  // nobody knows whether the module has heard of it: the next run tells it
    }
    inbox_.Post([this, onTold = event.onTold, isWanted, isLost = isMailLost_.load()] {
        if (isWanted) {
            onTold(isLost);
            onTold_();
        }
        DeliverNext();
    });
}

void CAnnouncer::OnMail(bool isTaken) {
    if (deliverer_.load() == std::this_thread::get_id()) {
        (isTaken ? isMailTaken_ : isMailLost_) = true;
    }
}

void CAnnouncer::Tell(Component& component, Telling telling) {
    if (telling == Telling::Relisting) {
        component.isRestored = false;
        component.isRelisting = true;  // and the state stays: a sudden end repeats this, not the mail
    } else if (telling == Telling::News) {
        ++component.untold;
    }
    store_.Keep(component);
    store_.Save();
    const ComponentEvent event = {.id = component.id,
                                  .name = component.config.name,
                                  .designation = component.config.designation,
                                  .status = component.effective,
                                  .systemStatus = components_.SystemStatus(),
                                  .withoutMail = telling == Telling::Relisting};
    Event waiting = {.deliver = [this, event](CAgent& agent) { delivery_.Deliver(agent, event); },
                     .onTold = [this, event, telling](bool isMailLost) { OnTold(event, telling, isMailLost); }};
    if (telling == Telling::Reminder) {
        waiting.isWanted = [this, name = event.name] { return IsListed(ledger_.Pending(), name); };
    }
    Post(event.name, std::move(waiting));
}

void CAnnouncer::TellNews(Component& component) {
    retries_.Forget(component.config.name);
    Tell(component, Telling::News);
}

void CAnnouncer::TellUpdates(Component& component) {
    component.isUpdateDue = true;
    store_.Keep(component);
    store_.Save();
    const std::uint32_t updates = *component.updates;
    Post(component.config.name,
         {.deliver = [this, updates, systemStatus = components_.SystemStatus()](
                         CAgent& agent) { delivery_.DeliverUpdates(agent, updates, systemStatus); },
          .onTold = [this, name = component.config.name,
                     updates](bool isMailLost) { OnUpdatesTold(name, updates, isMailLost); }});
}

void CAnnouncer::TellOver(const Component& gone) {
    const std::string& name = gone.config.name;
    reminders_.erase(name);
    retries_.Forget(name);
    retries_.Forget(name + std::string(kUpdates));
    if (gone.IsBad() || gone.untold > 0 || gone.isMailDue) {
        over_[name] = gone;  // and the state stays until it is told: the next run tells it if this one cannot
        DeliverOver(name);
    } else {
        store_.Forget(name);
        store_.Save();
    }
}

void CAnnouncer::DeliverOver(const std::string& name) {
    const Component& gone = over_.at(name);
    const ComponentEvent event = {.id = gone.id,
                                  .name = name,
                                  .designation = gone.config.designation,
                                  .status = kOk,
                                  .systemStatus = components_.SystemStatus()};
    Post(name, {.deliver = [this, event](CAgent& agent) { delivery_.Deliver(agent, event); },
                .onTold = [this, name](bool isMailLost) { OnOverTold(name, isMailLost); }});
}

void CAnnouncer::OnOverTold(const std::string& name, bool isMailLost) {
    MarkPending();
    if (Component* again = components_.Find(name)) {
        again->isMailDue = isMailLost;
        store_.Keep(*again);
    } else if (!isMailLost) {
        over_.erase(name);
        store_.Forget(name);
    }
    retries_.OnTold(name, isMailLost);
    store_.Save();
}

void CAnnouncer::TakeBack(Component& component) {
    if (over_.erase(component.config.name) > 0) {
        component.isMailDue = true;
        store_.Keep(component);
    }
}

void CAnnouncer::OnTold(const ComponentEvent& event, Telling telling, bool isMailLost) {
    Component* component = components_.Find(event.name);
    if (component != nullptr && component->id != event.id) {
        component = nullptr;  // another one of that name, which came after this one's end
    }
    if (component != nullptr && telling == Telling::Relisting) {
        component->isRelisting = false;
    }
    MarkPending();
    if (component != nullptr && telling == Telling::Relisting) {
        Remind(*component);
    } else if (component != nullptr && (telling == Telling::Reminder || component->untold > 0)) {
        component->untold -= telling == Telling::News ? 1 : 0;
        component->isMailDue = isMailLost;
        store_.Keep(*component);
        Remind(*component);
        retries_.OnTold(event.name, isMailLost);
    }
    store_.Save();
}

void CAnnouncer::OnUpdatesTold(const std::string& name, std::uint32_t updates, bool isMailLost) {
    Component* component = components_.Find(name);
    if (component != nullptr && component->updates == updates) {  // else there is news of it
        component->isUpdateDue = isMailLost;
        store_.Keep(*component);
        store_.Save();
        retries_.OnTold(name + std::string(kUpdates), isMailLost);
    }
}

void CAnnouncer::SetReminder(std::chrono::milliseconds interval) {
    if (std::exchange(reminder_, interval) == interval) {
        return;
    }
    for (const Component& component : components_.All()) {
        if (component.isPending) {
            Remind(component);
        }
    }
}

void CAnnouncer::Remind(const Component& component) {
    const std::string& name = component.config.name;
    reminders_.erase(name);
    if (component.IsBad() && reminder_.count() > 0) {
        reminders_[name] = loop_.After(reminder_, [this, name] {
            Component* still = components_.Find(name);
            // A mail that is tried again reminds by itself.
            if (still != nullptr && still->IsBad() && still->isPending && !retries_.IsNear(name)) {
                Tell(*still, Telling::Reminder);
            }
        });
    }
}

void CAnnouncer::TellAgain(const std::string& subject) {
    const bool isUpdate = subject.ends_with(kUpdates);
    Component* component =
        components_.Find(isUpdate ? std::string_view(subject).substr(0, subject.rfind('/')) : subject);
    if (component == nullptr) {
        if (over_.contains(subject)) {
            DeliverOver(subject);
        }
        return;
    }
    if (isUpdate && component->isUpdateDue && component->config.isUpdate) {
        TellUpdates(*component);
    } else if (!isUpdate && (component->IsBad() || component->isMailDue)) {
        Tell(*component, Telling::News);
    }
}

void CAnnouncer::MarkPending() {
    const auto pending = ledger_.Pending();
    for (Component& component : components_.All()) {
        if (component.isRestored || component.isRelisting) {
            continue;  // listed when its cause is known to persist
        }
        const bool isPending = IsListed(pending, component.config.name);
        if (std::exchange(component.isPending, isPending) != isPending) {
            store_.Keep(component);
        }
    }
}
