// SPDX-License-Identifier: Apache-2.0
#include "service/core/StateStore.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>

#include "agent/core/Command.h"
#include "agent/core/Json.h"
#include "service/loop/Journal.h"

namespace {

constexpr auto kOk = static_cast<std::int64_t>(ComponentStatus::Ok);
constexpr auto kCritical = static_cast<std::int64_t>(ComponentStatus::Critical);

std::string Key(const Component& component, const char* what) {
    return "components/" + component.config.name + "/" + what;
}

}  // namespace

CStateStore::CStateStore(const std::string& directory) : directory_(directory), registry_(directory) {
    if (::mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        Journal(3, "cannot make " + directory + ": " + std::generic_category().message(errno));
    }
    lock_.Reset(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock_ && ::flock(lock_.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        throw CAgentError("another service keeps its state in " + directory);
    }
    if (const auto loaded = registry_.Load(); !loaded.problem.empty()) {
        isChanged_ = true;
        Journal(3, loaded.problem);
    }
}

void CStateStore::Restore(Component& component) const {
    if (component.isReported) {
        component.isReported = registry_.GetBool(Key(component, "reported"), false);
        component.config.designation = registry_.Get(Key(component, "designation")).value_or(component.config.name);
    }
    const std::int64_t status = registry_.GetNumber(Key(component, "status"), -1);
    if (status < 0 || status > kCritical) {
        return;  // none, or rubbish
    }
    component.status = static_cast<ComponentStatus>(status);
    component.since = registry_.GetNumber(Key(component, "since"), 0);
    const std::int64_t effective = registry_.GetNumber(Key(component, "effective"), 0);
    if (effective >= kOk && effective <= kCritical) {
        component.effective = static_cast<std::uint32_t>(effective);
    } else if (component.since != 0) {  // kept of what is unknown only
        component.effective = EffectiveOf(component.status, component.config);
    }
    component.text = registry_.Get(Key(component, "text")).value_or("");
    component.isPending = registry_.GetBool(Key(component, "pending"), false);
    if (const auto updates = ParseNumber(registry_.Get(Key(component, "updates")).value_or(""))) {
        component.updates = updates;
        component.isUpdateDue = registry_.GetBool(Key(component, "updates-due"), false);
    }
    const bool isTold = registry_.GetBool(Key(component, "told"), false);
    component.isRestored = isTold && component.since != 0;
    component.isMailDue = !isTold;
}

void CStateStore::Put(const std::string& key, const std::string& value) {
    isChanged_ = isChanged_ || registry_.Get(key) != value;
    registry_.Set(key, value);
}

void CStateStore::Take(const std::string& key) {
    isChanged_ = registry_.Remove(key) || isChanged_;
}

void CStateStore::Keep(const Component& component) {
    const auto put = [&](const char* what, const std::string& value) { Put(Key(component, what), value); };
    const auto flag = [&](const char* what, bool value) { put(what, value ? "true" : "false"); };
    put("status", std::to_string(static_cast<std::uint32_t>(component.status)));
    put("since", std::to_string(component.since));
    put("text", component.text);
    flag("told", component.untold == 0 && !component.isMailDue);
    flag("pending", component.isPending);
    flag("reported", component.isReported);
    flag("updates-due", component.isUpdateDue);
    if (component.updates) {
        put("updates", std::to_string(*component.updates));
    }
    // Written only where they tell something: each save writes the whole state.
    const auto putIf = [&](bool isNews, const char* what, const std::string& value) {
        if (isNews) {
            put(what, value);
        } else if (registry_.Get(Key(component, what))) {
            Take(Key(component, what));
        }
    };
    putIf(component.status == ComponentStatus::Unknown, "effective", std::to_string(component.effective));
    putIf(component.config.designation != component.config.name, "designation", component.config.designation);
}

std::vector<std::uint32_t> CStateStore::Settings() const {
    std::vector<std::uint32_t> ids;
    for (const std::string& name : registry_.Children("settings")) {
        if (const auto id = ParseNumber(name)) {
            ids.push_back(*id);
        }
    }
    return ids;
}

std::optional<std::string> CStateStore::Setting(std::uint32_t id) const {
    return registry_.Get(SettingKey(id));
}

void CStateStore::Save() {
    if (!isChanged_) {
        return;
    }
    const int error = registry_.Save();
    isChanged_ = error != 0;
    if (error == saveError_) {
        return;  // told already: each result would tell it again
    }
    saveError_ = error;
    if (error != 0) {
        Journal(3, "cannot save the state in " + directory_ + ": " + std::generic_category().message(error) +
                       "; a restart would forget what has changed since");
    } else {
        Journal(5, "the state in " + directory_ + " is saved again");
    }
}
