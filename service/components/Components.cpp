// SPDX-License-Identifier: Apache-2.0
#include "service/components/Components.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace {

constexpr std::ptrdiff_t kMostReported = 1000;

constexpr std::uint32_t kOk = static_cast<std::uint32_t>(ComponentStatus::Ok);

}  // namespace

bool Component::IsBad() const {
    return effective != kOk;
}

std::uint32_t EffectiveOf(ComponentStatus status, const CheckConfig& config) {
    return status == ComponentStatus::Unknown ? config.unknownIs : static_cast<std::uint32_t>(status);
}

std::vector<Component> CComponents::Configure(const std::vector<CheckConfig>& checks) {
    std::deque<Component> next;
    for (const CheckConfig& check : checks) {
        Component component;
        if (const Component* known = Find(check.name)) {
            component = *known;
        } else {
            component.id = ++lastId_;
        }
        component.config = check;
        component.isReported = false;
        next.push_back(std::move(component));
    }
    std::vector<Component> gone;
    for (Component& known : components_) {
        if (std::ranges::find(checks, known.config.name, &CheckConfig::name) == checks.end()) {
            known.isReported ? next.push_back(std::move(known)) : gone.push_back(std::move(known));
        }
    }
    components_ = std::move(next);
    return gone;
}

const Component* CComponents::Find(std::string_view name) const {
    const auto found =
        std::ranges::find(components_, name, [](const Component& one) -> std::string_view { return one.config.name; });
    return found != components_.end() ? &*found : nullptr;
}

Component* CComponents::Find(std::string_view name) {
    return const_cast<Component*>(std::as_const(*this).Find(name));
}

Component* CComponents::FindOrMake(const std::string& name) {
    if (Component* known = Find(name)) {
        return known;
    }
    if (std::ranges::count(components_, true, &Component::isReported) >= kMostReported) {
        return nullptr;
    }
    Component& made = components_.emplace_back();
    made.config.name = made.config.designation = name;
    made.id = ++lastId_;
    made.isReported = true;
    return &made;
}

Consequence CComponents::Take(Component& component, const CheckResult& result) {
    const std::time_t now = std::time(nullptr);
    component.text = result.text;
    component.checked = now;
    component.took = result.took;
    const std::uint32_t before = component.effective;
    const std::uint32_t after = EffectiveOf(result.status, component.config);
    const bool isListed = !std::exchange(component.isRestored, false) || !component.isPending;
    const Consequence same = isListed ? Consequence::None : Consequence::Again;
    component.badInRow = after == kOk ? 0 : component.badInRow + 1;
    const bool isNew = component.since == 0;
    if (!isNew && result.status == component.status && after == before) {
        component.badInRow = 0;
        return same;
    }
    if (before == kOk && after != kOk && component.badInRow < component.config.attempts) {
        return Consequence::None;
    }
    component.badInRow = 0;
    component.status = result.status;
    component.effective = after;
    component.since = now;
    return after == before ? same : Consequence::Settled;
}

std::uint32_t CComponents::SystemStatus() const {
    std::uint32_t worst = kOk;
    for (const Component& component : components_) {
        worst = std::max(worst, component.effective);
    }
    return worst;
}
