// SPDX-License-Identifier: Apache-2.0
#include "service/core/Announcer.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "service/loop/Journal.h"

namespace {

constexpr std::uint32_t kOk = 1;
constexpr std::string_view kUpdates = "/updates";  // behind a component's name, which has no "/": what a mail was about

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

template <typename Deliver>
void CAnnouncer::Post(const std::string& subject, Deliver deliver, std::function<void(bool isMailLost)> onTold) {
    const bool isPosted = module_->Post([this, deliver, onTold = std::move(onTold)](CAgent& agent) {
        isMailLost_ = false;
        deliver(agent);
        inbox_.Post([this, onTold, isLost = isMailLost_.load()] {
            onTold(isLost);
            onTold_();
        });
    });
    if (!isPosted) {
        Journal(3, subject + ": too many events wait for the module; this one is told after a restart");
    }
}

void CAnnouncer::Tell(Component& component, bool withoutMail) {
    ++component.untold;
    store_.Keep(component);
    store_.Save();
    const ComponentEvent event = {.id = component.id,
                                  .name = component.config.name,
                                  .designation = component.config.designation,
                                  .status = component.Effective(),
                                  .systemStatus = components_.SystemStatus(),
                                  .withoutMail = withoutMail};
    Post(
        event.name, [this, event](CAgent& agent) { delivery_.Deliver(agent, event); },
        [this, name = event.name](bool isMailLost) { OnTold(name, isMailLost); });
}

void CAnnouncer::TellUpdates(Component& component) {
    component.isUpdateDue = true;
    store_.Keep(component);
    store_.Save();
    Post(
        component.config.name,
        [this, updates = *component.updates](CAgent& agent) { delivery_.DeliverUpdates(agent, updates); },
        [this, name = component.config.name](bool isMailLost) { OnUpdatesTold(name, isMailLost); });
}

void CAnnouncer::TellOver(const Component& gone) {
    const std::string& name = gone.config.name;
    reminders_.erase(name);
    retries_.Forget(name);
    retries_.Forget(name + std::string(kUpdates));
    store_.Forget(name);
    if (gone.IsBad()) {
        const ComponentEvent event = {.id = gone.id,
                                      .name = name,
                                      .designation = gone.config.designation,
                                      .status = kOk,
                                      .systemStatus = components_.SystemStatus()};
        Post(
            name, [this, event](CAgent& agent) { delivery_.Deliver(agent, event); },
            [this](bool /*isMailLost*/) { MarkPending(); });
    }
}

void CAnnouncer::OnTold(const std::string& name, bool isMailLost) {
    MarkPending();
    if (Component* component = components_.Find(name); component != nullptr && component->untold > 0) {
        --component->untold;
        component->isMailDue = isMailLost;
        store_.Keep(*component);
        Remind(*component);
        retries_.OnTold(name, isMailLost);
    }
    store_.Save();
}

void CAnnouncer::OnUpdatesTold(const std::string& name, bool isMailLost) {
    if (Component* component = components_.Find(name)) {
        component->isUpdateDue = isMailLost;
        store_.Keep(*component);
        store_.Save();
        retries_.OnTold(name + std::string(kUpdates), isMailLost);
    }
}

void CAnnouncer::Remind(const Component& component) {
    const std::string& name = component.config.name;
    reminders_.erase(name);
    if (component.IsBad() && reminder_.count() > 0) {
        reminders_[name] = loop_.After(reminder_, [this, name] { TellAgain(name); });
    }
}

void CAnnouncer::TellAgain(const std::string& subject) {
    const bool isUpdate = subject.ends_with(kUpdates);
    Component* component =
        components_.Find(isUpdate ? std::string_view(subject).substr(0, subject.rfind('/')) : subject);
    if (component == nullptr) {
        return;
    }
    if (isUpdate && component->isUpdateDue) {
        TellUpdates(*component);
    } else if (!isUpdate && (component->IsBad() || component->isMailDue)) {
        Tell(*component, false);
    }
}

void CAnnouncer::MarkPending() {
    const auto pending = ledger_.Pending();
    for (Component& component : components_.All()) {
        const bool isPending =
            std::ranges::find(pending, component.config.name, &CLedger::Alert::name) != pending.end();
        if (std::exchange(component.isPending, isPending) != isPending) {
            store_.Keep(component);
        }
    }
}
